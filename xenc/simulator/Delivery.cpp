// The simulator's own thread.  Start, Stop, Post, Flush.
#include "xenc/simulator/Delivery.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "xenc/simulator/Control.h"

namespace qz::xenc {

namespace {

// A file cannot be polled for lines appended to it, so it is looked at this often.
constexpr int FILE_POLL_MILLISECONDS = 50;

thread_local bool t_OnDeliveryThread = false;

} // namespace

bool Delivery::OnOwnThread() {
    return t_OnDeliveryThread;
}

bool Delivery::Start(Handlers handlers, ControlInput& control) {
    const int wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd < 0)
        return false;
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        m_WakeFd = wakeFd;
        m_Running = true;
    }
    m_Handlers = std::move(handlers);

    // The program's signals are for its own threads; the new thread inherits the mask.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    bool started = true;
    try {
        m_Thread = std::thread([this, &control] { Run(control); });
    } catch (const std::system_error&) {
        started = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!started)
        Stop();
    return started;
}

void Delivery::Stop() {
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        if (!m_Running)
            return;
        m_Running = false;
        eventfd_write(m_WakeFd, 1); // cannot fail: the counter is nowhere near its limit
    }
    if (m_Thread.joinable())
        m_Thread.join();

    const std::lock_guard<std::mutex> lock(m_Lock);
    close(m_WakeFd);
    m_WakeFd = -1;
    m_Queue.clear();
    m_DeliveredCount = m_PostedCount;
    m_Settled.notify_all();
}

bool Delivery::Post(Notice notice) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    if (!m_Running)
        return false;
    m_Queue.push_back(std::move(notice));
    ++m_PostedCount;
    eventfd_write(m_WakeFd, 1);
    return true;
}

void Delivery::Flush() {
    if (OnOwnThread())
        return; // what is queued cannot be delivered before the running callback returns
    std::unique_lock<std::mutex> lock(m_Lock);
    const uint64_t posted = m_PostedCount;
    m_Settled.wait(lock, [this, posted] { return m_DeliveredCount >= posted; });
}

void Delivery::Run(ControlInput& control) {
    t_OnDeliveryThread = true;
    while (true) {
        while (DeliverFront()) {
        }
        {
            const std::lock_guard<std::mutex> lock(m_Lock);
            if (!m_Running)
                return;
        }
        Wait(control);
        control.ReadLines(m_Handlers.controlLine);
    }
}

void Delivery::Wait(const ControlInput& control) const {
    // poll ignores a negative descriptor.
    pollfd watched[] = {{m_WakeFd, POLLIN, 0}, {control.CanPoll() ? control.Descriptor() : -1, POLLIN, 0}};
    const bool followsFile = control.Descriptor() >= 0 && !control.CanPoll();
    poll(watched, 2, followsFile ? FILE_POLL_MILLISECONDS : -1);
    eventfd_t wakeUps = 0;
    eventfd_read(m_WakeFd, &wakeUps); // fails when the control input or the time woke us
}

bool Delivery::DeliverFront() {
    std::unique_lock<std::mutex> lock(m_Lock);
    if (!m_Running || m_Queue.empty())
        return false;
    const Notice notice = std::move(m_Queue.front());
    m_Queue.pop_front();
    lock.unlock();

    m_Handlers.notice(notice);

    lock.lock();
    ++m_DeliveredCount;
    m_Settled.notify_all();
    return true;
}

} // namespace qz::xenc
