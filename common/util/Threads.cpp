// Threads.  WaitForJoin.  Tested in tests/common/LoggerTest.cpp.
#include "common/Util.h"

#include <chrono>
#include <future>
#include <system_error>

namespace qz::common {

int Util::WaitForJoin(std::thread* thread, int milliseconds) {
    if (!thread || !thread->joinable())
        return static_cast<int>(std::future_status::deferred);
    const std::chrono::milliseconds limit(milliseconds);
    try {
        // The future's destructor waits for the join, so the thread has ended when this returns, also after a time-out.
        const std::future<void> joined = std::async(std::launch::async, [thread] { thread->join(); });
        return static_cast<int>(joined.wait_for(limit));
    } catch (const std::system_error&) { // GCOV_EXCL_START: scripts/sweep.sh lets it fail
        // No thread for the join: it is waited for here, and only the answer comes late.
        const auto start = std::chrono::steady_clock::now();
        thread->join();
        const bool inTime = std::chrono::steady_clock::now() - start <= limit;
        return static_cast<int>(inTime ? std::future_status::ready : std::future_status::timeout);
    } // GCOV_EXCL_STOP
}

} // namespace qz::common
