#pragma once

#include <signal.h>

#include <list>
#include <mutex>

namespace qz::capture {

class SignalEventObserver;

// The process's signals.  The installed handler only writes the signal's number into a pipe; a dispatcher
// thread reads it, logs it and calls the observers in the order of their subscription.  The four fault
// signals (SIGILL, SIGABRT, SIGFPE, SIGSEGV) are logged by the dispatcher as well, but the handler itself
// then ends the process by that very signal, two seconds later, whatever locks the faulting thread held.
//
// Threads: setupSignal, subscribe and stop belong to main.
class SignalHandler {
public:
    // Adds an observer, borrowed; null is ignored.  There is no unsubscribing: stop ends every dispatch
    // instead.
    static void subscribe(SignalEventObserver* observer);

    // Starts the dispatcher, installs the handler for the fixed list of signals and ignores SIGPIPE.
    static void setupSignal();

    // Installs the handler for one signal.
    static void setSignalAction(int signal);

    // The handler.  Async-signal-safe; keeps errno; does not return from a fault.
    static void handleSignal(int signal);

    // Ends the dispatcher, after what was sent before: no observer is called once this has returned.  Later
    // signals are swallowed.  Does not return while a fault is ending the process, so that its status stays.
    static void stop();

    // Blocks the handled signals, but not the faults, in the calling thread, so that they cannot interrupt
    // it.
    static void blockInThisThread();

private:
    static void dispatchLoop();
    static void dispatch(int signal);
    [[noreturn]] static void endByFault(int signal);

    static constexpr int SIGNAL_LIMIT = 256;
    static struct sigaction m_SigactNew[SIGNAL_LIMIT]; // what was installed, by signal number
    static struct sigaction m_SigactOrg[SIGNAL_LIMIT]; // what was in force before
    static std::mutex m_ObserverLock;                  // guards m_Observer, not the calls
    static std::list<SignalEventObserver*> m_Observer; // in order of subscription; not owned
};

} // namespace qz::capture
