#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <mutex>
#include <thread>

#include "common/IRunnable.h"

namespace qz::common {

class IExecutor;

// Runs opaque items on a fixed number of worker threads, in the order in which they were queued.  The queue is bounded:
// when it is full the pool refuses the item, it never makes the caller wait.
//
// Threads: any thread may call Enqueue, Pending and Idle.  The executor is called on the workers and outside every
// lock, so it may call Enqueue itself.  With several workers the order between them is not defined.
class ThreadPool : public IRunnable {
public:
    // Starts the workers at once, with every signal blocked; none when threadCount is below 1, and as many as the
    // system has threads for.  The executor is borrowed and must outlive the pool; without one (null) the items are
    // taken and dropped.
    ThreadPool(IExecutor* executor, int threadCount, int queueLimit);

    // Waits for the workers; what is still queued then goes to the executor's OnDeletor.
    ~ThreadPool() override;

    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // True: the pool owns the item now.  False (null item, full queue): the caller still owns it.
    bool Enqueue(void* item);

    // Items queued and not yet taken by a worker.
    int32_t Pending() const { return m_PendingCount; }

    // Whether every item queued so far has been processed.
    bool Idle() const;

    // How many workers there are.
    size_t WorkerCount() const { return m_Threads.size(); }

    void OnRun() override;

private:
    void* TakeFront();

    IExecutor* const m_Executor;      // not owned
    std::mutex m_QueueLock;           // guards m_Queue
    std::mutex m_WaitLock;            // the idle wait and its end
    std::condition_variable m_Signal; // may miss a wake-up, so OnRun bounds its wait
    std::deque<void*> m_Queue;        // oldest first
    std::list<std::thread> m_Threads; // changed by the constructor and the destructor only
    const int32_t m_ThreadCount;
    const int32_t m_QueueLimit;          // the queue holds one item more than this
    std::atomic<int32_t> m_PendingCount; // the queue's size, readable without the lock
    std::atomic<int32_t> m_BusyCount;    // items that a worker is processing
    std::atomic<bool> m_Running;         // cleared by the destructor only
};

} // namespace qz::common
