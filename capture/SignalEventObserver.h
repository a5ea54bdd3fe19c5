#pragma once

#include <sys/types.h>

namespace qz::capture {

// Whoever wants to know of the signals that SignalHandler dispatches.
class SignalEventObserver {
public:
    virtual ~SignalEventObserver() = default;

    // Called on the signal dispatcher's thread, once per signal.  The pid is always -1: the sender is not known.
    virtual void OnSignalEvent(int signal, pid_t pid) = 0;
};

} // namespace qz::capture
