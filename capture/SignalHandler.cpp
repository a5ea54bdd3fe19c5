// Signals: setupSignal, the handler, the dispatcher, the end by a fault.  Tested in tests/daemon/DaemonTest.cpp.
#include "capture/SignalHandler.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <system_error>
#include <thread>

#include "capture/Converter.h"
#include "capture/SignalEventObserver.h"
#include "common/FileAccess.h"
#include "common/FileLogger.h"
#include "common/SignalMask.h"

using qz::common::AllSignalsBlocked;
using qz::common::SignalSet;
using qz::common::Wake;
using namespace std::chrono_literals;

namespace qz::capture {

namespace {

struct HandledSignal {
    int number;
    bool fault;
};

// In the order of installation.  SIGKILL cannot be caught; its "registered" line is part of what readers of the log
// expect at its start.
constexpr HandledSignal HANDLED_SIGNALS[] = {{SIGTERM, false}, {SIGINT, false}, {SIGSEGV, true},  {SIGABRT, true},
                                             {SIGILL, true},   {SIGFPE, true},  {SIGQUIT, false}, {SIGKILL, false},
                                             {SIGTSTP, false}, {SIGHUP, false}, {SIGUSR1, false}, {SIGALRM, false}};

// The pipe that wakes the dispatcher.  Both ends live as long as the process: a signal may come at any time.
std::atomic<int> readEnd{-1};
std::atomic<int> writeEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free, "the handler must not take a lock");

// What has come and has not been dispatched, by signal number; the first for numbers that are none.
std::atomic<bool> pending[256];
std::atomic<int> strayNumber{0};

// The thread that the first fault struck; 0: none yet.
std::atomic<pid_t> faultThread{0};

// Null for a signal that is not handled.
const HandledSignal* Find(int number) {
    for (const HandledSignal& signal : HANDLED_SIGNALS) {
        if (signal.number == number)
            return &signal;
    }
    return nullptr;
}

bool IsFault(int number) {
    const HandledSignal* signal = Find(number);
    return signal && signal->fault;
}

sigset_t HandledSignals(bool faults) {
    sigset_t set = SignalSet({});
    for (const HandledSignal& signal : HANDLED_SIGNALS) {
        if (signal.fault == faults)
            sigaddset(&set, signal.number);
    }
    return set;
}

// Async-signal-safe, like everything below that the handler calls.
void Tell(int signal) {
    const bool known = signal > 0 && signal < static_cast<int>(std::size(pending));
    if (!known)
        strayNumber = signal;
    pending[known ? signal : 0] = true;
    Wake(writeEnd);
}

void Pause(std::chrono::nanoseconds duration) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration);
    timespec rest{static_cast<time_t>(seconds.count()), static_cast<long>((duration - seconds).count())};
    while (nanosleep(&rest, &rest) == -1 && errno == EINTR) {
    }
}

// Up to the end of this namespace, and endByFault: the end by a signal, which writes no counters; tests/daemon looks at
// it from outside.  GCOV_EXCL_START

// What system() would do, without its lock, and without waiting for ever.  posix_spawn neither allocates nor takes the
// locks that a plain fork takes.  The shell inherits the handler's signal mask: its one command waits for nothing.
void RunInShell(char* command) {
    char shell[] = "sh";
    char option[] = "-c";
    char* const arguments[] = {shell, option, command, nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, "/bin/sh", nullptr, nullptr, arguments, environ) != 0)
        return;
    constexpr int ATTEMPTS = 100; // a second
    for (int i = 0; i < ATTEMPTS && waitpid(child, nullptr, WNOHANG) == 0; ++i)
        Pause(10ms);
}

// Raises the signal in this thread, which has it blocked.
void Raise(int signal, const struct sigaction& action) {
    sigaction(signal, &action, nullptr);
    const sigset_t set = SignalSet({signal});
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    raise(signal);
}

[[noreturn]] void EndByDefault(int signal) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    Raise(signal, action);
    _exit(128 + signal); // only where the default action does not apply, as for a namespace's first process
}

// GCOV_EXCL_STOP
} // namespace

struct sigaction SignalHandler::m_SigactNew[SIGNAL_LIMIT] = {};
struct sigaction SignalHandler::m_SigactOrg[SIGNAL_LIMIT] = {};
// Never destroyed: the dispatcher outlives static objects.
std::mutex& SignalHandler::m_DispatchLock = *new std::mutex;
std::list<SignalEventObserver*>& SignalHandler::m_Observer = *new std::list<SignalEventObserver*>;
bool SignalHandler::m_Stopped = false;
void (*SignalHandler::m_ReopenLog)() = nullptr;

void SignalHandler::subscribe(SignalEventObserver* observer) {
    if (!observer)
        return;
    const std::lock_guard<std::mutex> lock(m_DispatchLock);
    m_Observer.push_back(observer);
}

bool SignalHandler::setupSignal() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        const int error = errno;
        QZ_LOG(ERR, "no pipe for the signals: " << strerror(error));
        return false;
    }
    fcntl(ends[1], F_SETFL, O_NONBLOCK); // the handler must never wait; the dispatcher does
    readEnd = ends[0];
    writeEnd = ends[1];
    try {
        const AllSignalsBlocked blocked;
        std::thread(dispatchLoop).detach();
    } catch (const std::system_error& error) { // GCOV_EXCL_START: scripts/sweep.sh lets it fail
        QZ_LOG(ERR, "no thread for the signals: " << error.what());
        return false;
    } // GCOV_EXCL_STOP
    std::atexit(yieldToFault);
    for (const HandledSignal& handled : HANDLED_SIGNALS)
        setSignalAction(handled.number);
    signal(SIGPIPE, SIG_IGN);
    QZ_LOG(INF, " * SetupSignal (SIGPIPE) : IGNORE SIGNAL.");
    return true;
}

void SignalHandler::setSignalAction(int signal) {
    m_SigactNew[signal].sa_handler = handleSignal;
    // While a fault is handled, another one that is sent cannot cut in on it.
    m_SigactNew[signal].sa_mask = IsFault(signal) ? HandledSignals(true) : SignalSet({});
    sigaction(signal, &m_SigactNew[signal], &m_SigactOrg[signal]);
    QZ_LOG(INF, " * handler registered. SetupSignal (" << strsignal(signal) << ":" << signal << ")");
}

void SignalHandler::handleSignal(int signal) {
    const int error = errno;
    if (IsFault(signal))
        endByFault(signal);
    Tell(signal);
    errno = error;
}

void SignalHandler::dispatchLoop() {
    for (;;) {
        char waking[4096]; // as much as has come: what counts are the marks
        if (read(readEnd, waking, sizeof waking) < 0)
            Pause(10ms); // whatever it is, the signals go on
        const std::lock_guard<std::mutex> lock(m_DispatchLock);
        dispatchPending();
    }
}

void SignalHandler::dispatchPending() {
    int number = 0;
    for (std::atomic<bool>& mark : pending) {
        if (mark.exchange(false) && (!m_Stopped || IsFault(number)))
            dispatch(number == 0 ? strayNumber.load() : number);
        ++number;
    }
}

void SignalHandler::dispatch(int signal) {
    if (m_ReopenLog)
        m_ReopenLog();
    QZ_LOG(INF, " Receives signal(" << strsignal(signal) << ":" << signal << "). ");
    const HandledSignal* handled = Find(signal);
    if (!handled) {
        QZ_LOG(INF, " unregistered signal. ignore.");
    } else if (handled->fault) {
        QZ_LOG(INF, "Abnormal process exit."); // the handler does the rest
    } else {
        for (SignalEventObserver* observer : m_Observer)
            observer->OnSignalEvent(signal, -1);
    }
}

// GCOV_EXCL_START
void SignalHandler::endByFault(int signal) {
    pid_t none = 0;
    if (!faultThread.compare_exchange_strong(none, static_cast<pid_t>(syscall(SYS_gettid)))) {
        for (;;)
            Pause(1min); // the first one ends the process
    }

    Tell(signal);
    Pause(2s);
    Converter::KillRunning();
    kill(getpid(), SIGCONT);
    char command[sizeof "kill -CONT -2147483648"];
    snprintf(command, sizeof command, "kill -CONT %d", static_cast<int>(getpid()));
    RunInShell(command);

    // What was in force before this handler has its say first, as the kernel would call it.
    Raise(signal, m_SigactOrg[signal]);
    EndByDefault(signal);
}
// GCOV_EXCL_STOP

void SignalHandler::stop() {
    blockInThisThread(); // a flood of them would hold up the exit
    const std::lock_guard<std::mutex> lock(m_DispatchLock);
    dispatchPending();
    m_Stopped = true;
}

void SignalHandler::withLogAtRest(const std::function<void()>& work, void (*reopenLog)()) {
    yieldToFault(); // one that is under way has yet to be logged
    const std::lock_guard<std::mutex> lock(m_DispatchLock);
    work();
    m_ReopenLog = reopenLog;
}

void SignalHandler::yieldToFault() {
    while (faultThread != 0)
        Pause(1min);
}

void SignalHandler::blockInThisThread() {
    const sigset_t blocked = HandledSignals(false);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

} // namespace qz::capture
