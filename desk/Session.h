#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>

#include "common/LogReader.h"

namespace qz::desk {

// Milliseconds since the epoch.
int64_t Now();

// What is known about the daemon's session, as anybody could tell from its process and its log.  The log tells events
// and states only of a daemon with --debug.
//
// Threads: any.
class Session {
public:
    void Begin(pid_t pid, bool debug, int rotation);  // in quarter turns
    void Take(const qz::common::LogRecord& record);   // others' than this session's are passed over
    void End(int status, const std::string& printed); // as waitpid has it; what the daemon printed

    bool Running() const;
    int64_t LastRequest() const; // when the idle clock was last set back; 0: it does not run

    // All of it as one JSON object.
    std::string Json() const;

private:
    void Understand(const std::string& message);

    mutable std::mutex m_Lock; // guards all below
    pid_t m_Pid = 0;           // of the last session; 0: there was none
    bool m_Running = false;
    bool m_Debug = false;
    bool m_Ready = false;
    bool m_Terminated = false; // its log says so
    int m_Rotation = 0;
    int m_Status = 0;
    int64_t m_Began = 0;
    int64_t m_Ended = 0;
    int64_t m_LastRequest = 0;
    std::string m_State;            // the encoder's; empty: not known
    std::string m_Cause;            // the first thing that ends a session; empty: none yet
    std::string m_Printed;          // by the daemon, its last line
    std::deque<std::string> m_Last; // lines of the log
};

} // namespace qz::desk
