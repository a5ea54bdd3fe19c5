// Pid files, lock files and the processes they name.  Used by Process.  Tested in tests/common/ProcessTest.cpp.
#include "common/Util.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "common/FileAccess.h"
#include "common/FileLogger.h"
#include "common/Owners.h"

using namespace std::chrono_literals;

namespace qz::common {

namespace {

constexpr size_t COMM_LENGTH = 15;      // what the kernel keeps of a process name
constexpr size_t PID_FILE_LIMIT = 4096; // bytes: no pid takes more, and a file without an end must not be read to it
constexpr int LOCK_ATTEMPTS = 10;
constexpr int KILL_AFTER_SECONDS = 5;

std::string ProcessDirectory(int pid) {
    return "/proc/" + std::to_string(pid);
}

// Whether the process has ended and only waits for its parent to ask.
bool IsZombie(int pid) {
    const std::string stat = ReadText(ProcessDirectory(pid) + "/stat");
    const size_t name = stat.rfind(')'); // a process name may itself hold blanks and brackets
    if (name == std::string::npos)
        return false;
    const std::string state = stat.substr(name, 3);
    return state == ") Z" || state == ") X";
}

bool HasGone(int pid) {
    return !Util::IsDirectory(ProcessDirectory(pid)) || IsZombie(pid);
}

} // namespace

int Util::FileLock(std::string path) {
    // An ending instance removes its lock file before it lets go of the lock.  Whoever had opened that file before then
    // locks a file that nobody else can find, and so tries again.
    for (int attempt = 0; attempt < LOCK_ATTEMPTS; ++attempt) {
        UniqueFd fd = OpenRegularForWriting(path.c_str(), O_TRUNC | O_NOFOLLOW);
        if (!fd.Valid() || fcntl(fd.Get(), F_SETFD, FD_CLOEXEC) != 0 || flock(fd.Get(), LOCK_EX | LOCK_NB) != 0)
            return -1;
        if (FileIdentity::Of(fd.Get()) == FileIdentity::Of(path.c_str()))
            return fd.Release();
    }
    return -1;
}

int Util::LogPID(std::string path) {
    UniqueFd file = OpenRegularForWriting(path.c_str(), O_TRUNC);
    if (!file.Valid()) {
        std::cout << "failure to create pid file:" << path << std::endl;
        return -1;
    }
    const bool written = dprintf(file.Get(), "%d", static_cast<int>(getpid())) > 0;
    return file.Reset() && written ? 0 : -1;
}

int Util::ReadPID(std::string path) {
    const UniqueFd fd = OpenRegularForReading(path.c_str());
    if (!fd.Valid())
        return 0;
    std::string text;
    for (size_t total = 0; total < PID_FILE_LIMIT;) {
        char piece[9] = {};
        const ssize_t count = ReadSome(fd.Get(), piece, sizeof piece - 1);
        if (count <= 0)
            break;
        total += static_cast<size_t>(count);
        text += piece;
    }
    // long long: where long has 32 bits, strtol would answer its limit for what is no pid.
    const long long pid = strtoll(text.c_str(), nullptr, 10);
    return pid >= INT_MIN && pid <= INT_MAX ? static_cast<int>(pid) : 0;
}

bool Util::AlivePID(int pid, std::string name) {
    if (pid < 1 || !IsDirectory(ProcessDirectory(pid)))
        return false;
    if (name.empty())
        return true;
    std::string text = ReadText(ProcessDirectory(pid) + "/comm");
    name = Trim(name).substr(0, COMM_LENGTH);
    return Trim(text) == Trim(name);
}

bool Util::KillPID(int pid) {
    if (pid < 1)
        return false;
    if (kill(pid, SIGTERM) != 0) {
        const int error = errno;
        QZ_LOG(ERR, "failure to kill PID:" << pid << " " << strerror(error));
    }
    for (;;) {
        for (int second = 0; second < KILL_AFTER_SECONDS; ++second) {
            std::this_thread::sleep_for(1s);
            if (HasGone(pid))
                return true;
        }
        if (kill(pid, SIGKILL) != 0 && errno != ESRCH)
            return false; // refused now, refused for ever
    }
}

} // namespace qz::common
