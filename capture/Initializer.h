#pragma once

#include "capture/Arguments.h"
#include "common/Process.h"

namespace qz::capture {

// Brings the process from its command line to a held single-instance lock and a running log.  It is built first and
// destroyed last, so everything between may log.
//
// Threads: main.
class Initializer {
public:
    // Parses the command line (which may end the process) and initialises.
    Initializer(int argc, char** argv);

    // Lets the log finish, ends it, and releases the lock and pid files.
    virtual ~Initializer();

    Initializer(const Initializer&) = delete;
    Initializer& operator=(const Initializer&) = delete;

    // The stop request, or lock, log directory and log in this order; whether the log has started.  False leaves the
    // reason on standard output.
    bool Initialize(int argc, char** argv);

    void Cleanup();

    // Frees the single instance: removes its files and lets go of the lock.
    void Release(); // main, or EndWatch's thread in its place

    // Ends the process beside library threads that may still call back: lets the log finish and releases the files, but
    // destroys nothing that they may use.
    [[noreturn]] void Abandon(int status);

    bool Initialized() const { return m_Initialized; }

private:
    bool StartLog();

    Arguments m_Arguments;
    qz::common::Process m_Process;
    bool m_Initialized = false;
};

} // namespace qz::capture
