#pragma once

#include <signal.h>

#include <functional>
#include <list>
#include <mutex>

namespace qz::capture {

class SignalEventObserver;

// The process's signals.  The installed handler only marks the signal's number as pending and wakes a dispatcher thread
// through a pipe; the dispatcher logs each pending signal and calls the observers in the order of their subscription.
// No signal is lost: a mark stays until it is dispatched, however full the pipe is.  Of a signal that comes faster than
// it is dispatched, several may be dispatched as one.
//
// The four fault signals (SIGILL, SIGABRT, SIGFPE, SIGSEGV) are logged by the dispatcher as well, but the handler
// itself then ends the process by that very signal, two seconds later, whatever locks the faulting thread held.  Of
// several faults the first one counts.
//
// Threads: setupSignal, subscribe, stop and withLogAtRest belong to main.  The dispatcher lives as long as the process.
class SignalHandler {
public:
    // Adds an observer, borrowed; null is ignored.  There is no unsubscribing: stop ends every call instead.
    static void subscribe(SignalEventObserver* observer);

    // Starts the dispatcher, installs the handler for the fixed list of signals and ignores SIGPIPE.  False, after a
    // line and with no handler installed, when there is no pipe or no thread for the dispatcher.
    static bool setupSignal();

    // Installs the handler for one signal.
    static void setSignalAction(int signal);

    // The handler.  Async-signal-safe; keeps errno; does not return from a fault.
    static void handleSignal(int signal);

    // Blocks the handled signals in main and dispatches what was sent before: no observer is called once this has
    // returned.  Later signals are swallowed; faults are not.
    static void stop();

    // Runs the work, the end of the log, while the dispatcher logs nothing.  For a fault after it, the dispatcher
    // reopens the log first.
    static void withLogAtRest(const std::function<void()>& work, void (*reopenLog)());

    // Does not return while a fault is ending the process, so that an exit does not hide it.  Any thread.
    static void yieldToFault();

    // Blocks the handled signals, but not the faults, in the calling thread, so that they cannot interrupt it.
    static void blockInThisThread();

private:
    static void dispatchLoop();
    static void dispatchPending();
    static void dispatch(int signal);
    [[noreturn]] static void endByFault(int signal);

    static constexpr int SIGNAL_LIMIT = 256;
    static struct sigaction m_SigactNew[SIGNAL_LIMIT];  // what was installed, by signal number
    static struct sigaction m_SigactOrg[SIGNAL_LIMIT];  // what was in force before
    static std::mutex& m_DispatchLock;                  // held during each dispatch, its calls included; guards:
    static std::list<SignalEventObserver*>& m_Observer; // in order of subscription; not owned
    static bool m_Stopped;                              // faults alone are dispatched
    static void (*m_ReopenLog)();                       // null while the log is open
};

} // namespace qz::capture
