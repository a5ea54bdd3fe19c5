#pragma once

#include <sys/types.h>

#include <string>

namespace qz::control {

// The daemon as everybody sees it: its lock, its pid file, its process.
struct Instance {
    bool lockHeld = false;
    int pid = 0;        // of the pid file; 0: none
    bool alive = false; // that process lives and has the daemon's name

    bool Running() const { return lockHeld && alive; }

    // As it is now.  The lock is looked up, never taken: a starting daemon must not find it held.
    static Instance Look();
};

constexpr const char* DAEMON_NAME = "capture";
std::string LockPath();
std::string PidPath();
std::string LogDirectory();

} // namespace qz::control
