// Threads.  WaitForJoin.  Tested in tests/common/LoggerTest.cpp.
#include "common/Util.h"

#include <future>

namespace qz::common {

int Util::WaitForJoin(std::thread* thread, int milliseconds) {
    if (!thread || !thread->joinable())
        return static_cast<int>(std::future_status::deferred);
    // The future's destructor waits for the join, so the thread has ended when this returns, also after a
    // time-out.
    const std::future<void> joined = std::async(std::launch::async, [thread] { thread->join(); });
    return static_cast<int>(joined.wait_for(std::chrono::milliseconds(milliseconds)));
}

} // namespace qz::common
