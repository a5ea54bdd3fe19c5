#pragma once

#include <cstdint>
#include <string>

#include "common/Owners.h"

namespace qz::common {

// The lock file is LOCK_DIR + name + LOCK_EXTENSION, the pid file PID_DIR + name + PID_EXTENSION.
const std::string LOCK_DIR = "/var/lock/";
const std::string LOCK_EXTENSION = ".lock";
const std::string PID_DIR = "/var/run/";
const std::string PID_EXTENSION = ".pid";

// Keeps a daemon to one running instance per name, and lets a second invocation stop the running one.  The guard is an
// exclusive lock on the lock file; the pid file says who holds it.
//
// Threads: main, at start-up, at a stop request and at exit.
class Process {
public:
    // By a program path, or a name alone.
    explicit Process(std::string name);

    virtual ~Process(); // as Release

    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // What follows the last "/" of the program path.
    const std::string& Name() const { return m_Name; }

    // Makes the directories, takes the lock when asked to and writes the pid file.  False, after a line on standard
    // output, when another instance holds the lock or the pid file cannot be written.
    bool Init(bool lock);

    // Removes the files of an instance that wrote them, while it still holds the lock, and then lets go of it.
    void Release();

    // Takes the lock and keeps it: its descriptor, or -1 when somebody else holds it.  A lock held already is given up
    // only for another one, taken on a file that has replaced the locked one.
    int Lock();
    void Unlock();

    // Ends the instance that the pid file names and waits until it has gone.  With none it only logs.
    void FileKill();

    // Sends SIGTERM to this process; kill's result.
    int CurrentKill();

private:
    std::string LockPath() const { return LOCK_DIR + m_Name + LOCK_EXTENSION; }
    std::string PidPath() const { return PID_DIR + m_Name + PID_EXTENSION; }

    bool m_Owner = false; // this instance wrote the pid file
    std::string m_Name;
    int32_t m_Pid;
    UniqueFd m_LockDescriptor;
};

} // namespace qz::common
