#pragma once

namespace qz::common {

class IRunnable {
public:
    virtual ~IRunnable() = default;

    // The body of a worker thread; the thread ends when it returns.
    virtual void OnRun() = 0;
};

} // namespace qz::common
