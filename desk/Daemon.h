#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace qz::desk {

// The daemon as a child process: started with exactly its arguments, never by a shell, signalled, reaped.  At most one
// at a time.
//
// Threads: any may call the operations.  The observers are called on the keeper thread, which also is the daemon's
// parent: the daemon ends when the thread that started it does, so no thread that serves a request may be that one.
class Daemon {
public:
    struct Order {
        std::vector<std::string> arguments;
        std::vector<std::string> environment; // NAME=VALUE, in place of what the desk itself has by that name
        std::vector<std::string> without;     // names that the daemon does not get
    };
    using Started = std::function<void(pid_t)>;
    using Ended = std::function<void(int status)>; // as waitpid has it

    // What the daemon prints goes into the file output, which each start makes empty.
    Daemon(std::string program, std::string output, Started started, Ended ended);
    ~Daemon(); // ends a running one: SIGTERM, and when that takes too long SIGKILL

    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    // Returns when the daemon runs, but has not got ready.  Throws a Refusal: one runs already, or none can be started.
    void Start(Order order);

    // Throws a Refusal when none runs.
    void Signal(int number);

private:
    void Keep(); // the keeper thread
    void Spawn();

    const std::string m_Program;
    const std::string m_Output;
    const Started m_Started;
    const Ended m_Ended;

    std::mutex m_Lock; // guards all below; held where a signal is sent, so that it reaches no process but the daemon
    std::condition_variable m_Changed;
    Order m_Order;
    bool m_Wanted = false; // an order waits for the keeper
    bool m_Over = false;
    pid_t m_Pid = 0; // 0: none; until it is reaped
    int m_Error = 0; // of the last start
    std::thread m_Keeper;
};

} // namespace qz::desk
