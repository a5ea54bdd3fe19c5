// The simulator's own thread.  Start, Stop, Post, Flush.
#include "xenc/simulator/Delivery.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "xenc/simulator/ControlInput.h"

namespace qz::xenc {

namespace {

// A file cannot be polled for lines appended to it, so it is looked at this often.
constexpr int FILE_POLL_MILLISECONDS = 50;

thread_local bool t_OnDeliveryThread = false;

} // namespace

Delivery::Delivery() : m_WakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

bool Delivery::OnOwnThread() {
    return t_OnDeliveryThread;
}

bool Delivery::Start(Handlers handlers, ControlInput& control) {
    if (m_WakeFd < 0)
        return false;
    m_Handlers = std::move(handlers);
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        m_Running = true;
    }
    // The program's signals are for its own threads; the new thread inherits the mask.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        m_Thread = std::thread([this, &control] { Run(control); });
    } catch (const std::system_error&) {
        Stop();
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return m_Thread.joinable();
}

void Delivery::Stop() {
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        m_Running = false;
        Wake();
    }
    if (m_Thread.joinable())
        m_Thread.join();

    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Queue.clear();
    m_Settled.notify_all();
}

bool Delivery::Post(Notice notice) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    if (!m_Running)
        return false;
    m_Queue.push_back(std::move(notice));
    eventfd_write(m_WakeFd, 1);
    return true;
}

// Not given up at the first failure: nobody else would wake the thread.
void Delivery::Wake() {
    for (int attempt = 0; attempt < 3 && eventfd_write(m_WakeFd, 1) != 0;)
        ++attempt;
}

void Delivery::Flush() {
    if (OnOwnThread())
        return; // what is queued cannot be delivered before the running callback returns
    std::unique_lock<std::mutex> lock(m_Lock);
    m_Settled.wait(lock, [this] { return m_Queue.empty(); });
}

void Delivery::Run(ControlInput& control) {
    t_OnDeliveryThread = true;
    while (DeliverQueue()) {
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

bool Delivery::DeliverQueue() {
    std::unique_lock<std::mutex> lock(m_Lock);
    while (m_Running && !m_Queue.empty()) {
        const Notice& notice = m_Queue.front(); // others only append, which leaves it in its place
        lock.unlock();
        m_Handlers.notice(notice);
        lock.lock();
        m_Queue.pop_front();
        m_Settled.notify_all();
    }
    return m_Running;
}

} // namespace qz::xenc
