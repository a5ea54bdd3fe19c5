#pragma once

#include <functional>

namespace qz::capture {

// Bounds the end of the process: from the session's end to the exit it takes less than the five seconds that a stop
// request grants, whatever the encoder library, a decoder or the log's disk does.  A thread of its own watches main's
// way to the exit.  When the time is up it says in the log which wait it gives up, releases what would outlive the
// process, and ends it; nothing is destroyed that a hanging thread may still use.
//
// Threads: main, all of it.  Once the watch has given up, no operation returns any more.
class EndWatch {
public:
    // How far the end has come, and with it what may still be touched when the watch gives up.
    enum class Stage {
        LIBRARY, // the log, and the files of the single instance
        LOG,     // main is ending the log: the files alone
        EXIT     // nothing
    };

    // Starts the watching thread.  release is called on it, at most once; it frees the single instance.  False, after a
    // line, when there is no thread.
    static bool start(std::function<void()> release);

    // The session has ended; the process is to end with this status.  The first call counts.
    static void begin(int status);

    // Main goes on to that stage; what of the library it then waits for is named.
    static void enter(Stage stage, const char* what = "");

private:
    [[noreturn]] static void watch();
    [[noreturn]] static void giveUp();
};

} // namespace qz::capture
