#pragma once

#include <signal.h>

#include <initializer_list>

namespace qz::common {

// The set of these signals.  Async-signal-safe.
inline sigset_t SignalSet(std::initializer_list<int> signals) {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : signals)
        sigaddset(&set, signal);
    return set;
}

// Blocks every signal in the calling thread as long as it lives.  A thread that is started meanwhile is born, and
// stays, with them blocked: the process's signals are for other threads.  A real fault in such a thread ends the
// process at once, by the kernel.
class AllSignalsBlocked {
public:
    AllSignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_Before);
    }
    ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_Before, nullptr); }
    AllSignalsBlocked(const AllSignalsBlocked&) = delete;
    AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

private:
    sigset_t m_Before;
};

} // namespace qz::common
