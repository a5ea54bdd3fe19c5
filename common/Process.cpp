// The single-instance guard.  Tested in tests/common/ProcessTest.cpp.
#include "common/Process.h"

#include <signal.h>
#include <unistd.h>

#include <iostream>

#include "common/FileAccess.h"
#include "common/FileLogger.h"
#include "common/PathConstants.h"
#include "common/Util.h"

namespace qz::common {

namespace {

constexpr int DIRECTORY_MODE = 0731; // what the other programs of the appliance make them with

} // namespace

Process::Process(std::string name) : m_Name(std::move(name)), m_Pid(getpid()) {
    const size_t separator = m_Name.rfind(PATH_SEPARATOR);
    if (separator != std::string::npos)
        m_Name.erase(0, separator + PATH_SEPARATOR.size());
}

Process::~Process() {
    Release();
}

void Process::Release() {
    if (m_Owner) {
        unlink(PidPath().c_str());
        unlink(LockPath().c_str());
        m_Owner = false;
    }
    Unlock();
}

bool Process::Init(bool lock) {
    Util::MakeDirs(LOCK_DIR, DIRECTORY_MODE);
    Util::MakeDirs(PID_DIR, DIRECTORY_MODE);
    m_Owner = false;
    if (lock && Lock() == -1) {
        std::cout << " * already running process:" << m_Name << std::endl;
        return false;
    }
    if (Util::LogPID(PidPath()) != 0) {
        std::cout << " * failure to log pid:" << PidPath() << std::endl;
        return false;
    }
    m_Owner = true;
    return true;
}

int Process::Lock() {
    // Held already, on the file that the name still means.
    if (m_LockDescriptor.Valid() && FileIdentity::Of(m_LockDescriptor.Get()) == FileIdentity::Of(LockPath().c_str()))
        return m_LockDescriptor.Get();
    const int descriptor = Util::FileLock(LockPath());
    if (descriptor != -1)
        m_LockDescriptor.Reset(descriptor); // otherwise an old one stays held
    return descriptor;
}

void Process::Unlock() {
    m_LockDescriptor.Reset();
}

void Process::FileKill() {
    const int pid = Util::ReadPID(PidPath());
    if (Util::AlivePID(pid, m_Name))
        Util::KillPID(pid);
    else
        QZ_LOG(ERR, m_Name << " is not running.");
}

int Process::CurrentKill() {
    return kill(m_Pid, SIGTERM);
}

} // namespace qz::common
