#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace qz::xenc {

class ControlInput;

// One callback to make.
struct Notice {
    enum class Kind { SysEvent, MdEvent, State, Log };

    Kind kind;
    int code; // the event, the state or the log level
    int param;
    std::string text; // of a log line
};

// The simulator's own thread and its queue: notices are delivered one at a time, in the order in which they were
// posted.  Between them the thread reads the control input.
//
// Threads: Start and Stop must not overlap; any thread may call the others.  The handlers run on the delivery thread
// and outside every lock, so they may call everything here but Stop.
class Delivery {
public:
    struct Handlers {
        std::function<void(const Notice&)> notice;
        std::function<void(const std::string&)> controlLine;
    };

    Delivery();
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    // The input is borrowed and belongs to the delivery thread until Stop.  False when there is no thread or descriptor
    // left.
    bool Start(Handlers handlers, ControlInput& control);

    // Waits for the handler that is running and drops what is still queued.  Nothing when not started.
    void Stop();

    // False when not started.
    bool Post(Notice notice);

    // Returns once the queue is empty and no handler is running; at once on the delivery thread.
    void Flush();

    static bool OnOwnThread();

private:
    void Run(ControlInput& control);
    void Wake(); // with the lock held
    void Wait(const ControlInput& control) const;
    bool DeliverQueue(); // false: stop

    Handlers m_Handlers;               // constant while the thread runs
    std::thread m_Thread;              // Start and Stop only
    const int m_WakeFd;                // an eventfd, never closed: the object lives as long as the process
    std::mutex m_Lock;                 // guards the fields below
    std::condition_variable m_Settled; // the queue has become shorter
    std::deque<Notice> m_Queue;        // oldest first; the one being delivered stays until it is
    bool m_Running = false;
};

} // namespace qz::xenc
