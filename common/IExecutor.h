#pragma once

namespace qz::common {

// What a ThreadPool hands its items to.
class IExecutor {
public:
    virtual ~IExecutor() = default;

    // Processes an item, which the executor owns from now on.  Called on a worker, outside every lock.
    virtual void OnExecute(void* item) = 0;

    // Disposes of an item that will never be processed.
    virtual void OnDeletor(void* item) = 0;
};

} // namespace qz::common
