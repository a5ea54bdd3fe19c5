// Lock, pid file and process of the daemon.  Tested in tests/control/ControlTest.cpp.
#include "control/Instance.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>

#include "common/Constants.h"
#include "common/Process.h"
#include "common/Util.h"

using qz::common::Util;

namespace qz::control {

namespace {

// Whether somebody holds a lock on the file, as the kernel lists it: "1: FLOCK ADVISORY WRITE 812 00:1b:4711 0 EOF".
bool IsLocked(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        return false;
    char id[64];
    snprintf(id, sizeof id, " %02x:%02x:%llu ", major(status.st_dev), minor(status.st_dev),
             static_cast<unsigned long long>(status.st_ino));
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        if (line.find("FLOCK") != std::string::npos && line.find(id) != std::string::npos)
            return true;
    }
    return false;
}

} // namespace

std::string LockPath() {
    return qz::common::LOCK_DIR + DAEMON_NAME + qz::common::LOCK_EXTENSION;
}

std::string PidPath() {
    return qz::common::PID_DIR + DAEMON_NAME + qz::common::PID_EXTENSION;
}

std::string LogDirectory() {
    return qz::common::LOG_DIR + "/agent";
}

Instance Instance::Look() {
    Instance instance;
    instance.lockHeld = IsLocked(LockPath());
    instance.pid = Util::ReadPID(PidPath());
    // A zombie has gone: it has no program any more.
    char program[8];
    const std::string link = "/proc/" + std::to_string(instance.pid) + "/exe";
    instance.alive = Util::AlivePID(instance.pid, DAEMON_NAME) &&
                     (readlink(link.c_str(), program, sizeof program) >= 0 || errno != ENOENT);
    return instance;
}

} // namespace qz::control
