// The worker pool.  Enqueue, OnRun.  Tested in tests/common/LoggerTest.cpp.
#include "common/ThreadPool.h"

#include <chrono>
#include <system_error>

#include "common/IExecutor.h"
#include "common/SignalMask.h"
#include "common/Util.h"

using namespace std::chrono_literals;

namespace qz::common {

namespace {

// The enqueuer signals under the queue lock while a worker waits under the wait lock, so a wake-up can be missed; this
// bounds what that costs.
constexpr auto IDLE_WAIT = 10ms;

constexpr int JOIN_MILLISECONDS = 3000;

} // namespace

ThreadPool::ThreadPool(IExecutor* executor, int threadCount, int queueLimit)
    : m_Executor(executor), m_ThreadCount(threadCount), m_QueueLimit(queueLimit), m_PendingCount(0), m_BusyCount(0),
      m_Running(true) {
    const AllSignalsBlocked blocked;
    try {
        for (int i = 0; i < m_ThreadCount; ++i)
            m_Threads.emplace_back(&ThreadPool::OnRun, this);
    } catch (const std::system_error&) {
        // No more threads: those that were made do the work.
    }
}

ThreadPool::~ThreadPool() {
    {
        // Under the lock, so that no worker is between its look at the flag and its wait: the end is not missed.
        const std::lock_guard<std::mutex> lock(m_WaitLock);
        m_Running = false;
    }
    m_Signal.notify_all();
    // Returns only once the thread has ended, whatever it reports: the items below have no other reader left.
    for (std::thread& thread : m_Threads)
        Util::WaitForJoin(&thread, JOIN_MILLISECONDS);
    m_Threads.clear();

    const std::lock_guard<std::mutex> lock(m_QueueLock);
    while (!m_Queue.empty()) {
        void* item = m_Queue.front();
        m_Queue.pop_front();
        if (m_Executor)
            m_Executor->OnDeletor(item);
    }
}

bool ThreadPool::Enqueue(void* item) {
    if (!item)
        return false;
    const std::lock_guard<std::mutex> lock(m_QueueLock);
    const size_t queued = m_Queue.size();
    // The size before the append is what is compared, so the queue admits one item more than the limit, as users of the
    // pool have always been able to count on.
    if (m_QueueLimit < static_cast<int64_t>(queued))
        return false;
    m_Queue.push_back(item);
    ++m_PendingCount;
    if (queued == 0)
        m_Signal.notify_one();
    return true;
}

bool ThreadPool::Idle() const {
    return m_PendingCount == 0 && m_BusyCount == 0; // in this order; see TakeFront
}

void* ThreadPool::TakeFront() {
    const std::lock_guard<std::mutex> lock(m_QueueLock);
    if (m_Queue.empty())
        return nullptr;
    void* item = m_Queue.front();
    m_Queue.pop_front();
    ++m_BusyCount; // first, so that the item is at every moment counted as one or the other
    --m_PendingCount;
    return item;
}

void ThreadPool::OnRun() {
    while (m_Running) {
        if (void* item = TakeFront()) {
            if (m_Executor)
                m_Executor->OnExecute(item);
            --m_BusyCount;
            continue; // a busy queue is drained without waiting
        }
        std::unique_lock<std::mutex> lock(m_WaitLock);
        if (m_Running)
            m_Signal.wait_for(lock, IDLE_WAIT);
    }
}

} // namespace qz::common
