#pragma once

#include <condition_variable>
#include <cstdint>
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

// The simulator's own thread and its queue: notices are delivered one at a time, in the order in which they
// were posted.  Between them the thread reads the control input.
//
// Threads: Start and Stop must not overlap; any thread may call the others.  The handlers run on the delivery
// thread and outside every lock, so they may call everything here but Stop.
class Delivery {
public:
    struct Handlers {
        std::function<void(const Notice&)> notice;
        std::function<void(const std::string&)> controlLine;
    };

    Delivery() = default;
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    // The input is borrowed and belongs to the delivery thread until Stop.  False when there is no thread or
    // descriptor left.
    bool Start(Handlers handlers, ControlInput& control);

    // Waits for the handler that is running and drops what is still queued.  Nothing when not started.
    void Stop();

    // False when not started.
    bool Post(Notice notice);

    // Returns once everything posted before has been delivered or dropped; at once on the delivery thread.
    void Flush();

    static bool OnOwnThread();

private:
    void Run(ControlInput& control);
    void Wait(const ControlInput& control) const;
    bool DeliverFront();

    Handlers m_Handlers;               // constant while the thread runs
    std::thread m_Thread;              // Start and Stop only
    int m_WakeFd = -1;                 // an eventfd; changed while no thread runs, under m_Lock
    std::mutex m_Lock;                 // guards the fields below
    std::condition_variable m_Settled; // m_DeliveredCount or m_Running has changed
    std::deque<Notice> m_Queue;        // oldest first
    uint64_t m_PostedCount = 0;
    uint64_t m_DeliveredCount = 0; // counts the dropped ones too
    bool m_Running = false;
};

} // namespace qz::xenc
