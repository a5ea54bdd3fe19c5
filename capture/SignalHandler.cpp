// Signals: setupSignal, the handler, the dispatcher, the end by a fault.  Tested in
// tests/daemon/DaemonTest.cpp.
#include "capture/SignalHandler.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>

#include "capture/SignalEventObserver.h"
#include "common/FileLogger.h"

namespace qz::capture {

namespace {

// In the order of installation.  SIGKILL cannot be caught; it stands here and in the log all the same,
// deliberately.
constexpr int HANDLED_SIGNALS[] = {SIGTERM, SIGINT,  SIGSEGV, SIGABRT, SIGILL,  SIGFPE,
                                   SIGQUIT, SIGKILL, SIGTSTP, SIGHUP,  SIGUSR1, SIGALRM};

constexpr unsigned char STOP_TOKEN = 0; // no signal has this number

// The pipe between the handler and the dispatcher.  Both ends live as long as the process: a signal may come
// at any time.
std::atomic<int> readEnd{-1};
std::atomic<int> writeEnd{-1};
static_assert(std::atomic<int>::is_always_lock_free, "the handler must not take a lock");

std::thread dispatcher;

// The thread that the first fault struck (0: none yet), and that fault.
std::atomic<pid_t> faultThread{0};
std::atomic<int> faultSignal{0};

bool IsFault(int signal) {
    return signal == SIGILL || signal == SIGABRT || signal == SIGFPE || signal == SIGSEGV;
}

// The signals that blockInThisThread and the dispatcher hold back.
sigset_t NonFaultSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : HANDLED_SIGNALS) {
        if (!IsFault(signal))
            sigaddset(&set, signal);
    }
    return set;
}

// Async-signal-safe, like everything below that the handler calls.
bool Tell(unsigned char number) {
    const int fd = writeEnd;
    return fd < 0 || write(fd, &number, 1) == 1 || errno != EAGAIN;
}

void Pause(time_t seconds, long nanoseconds) {
    timespec rest{seconds, nanoseconds};
    while (nanosleep(&rest, &rest) == -1 && errno == EINTR) {
    }
}

// What system() would do, without its lock, and without waiting for ever.  posix_spawn neither allocates nor
// takes the locks that a plain fork takes.
void RunInShell(const char* command) {
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0)
        return;
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    char shell[] = "sh";
    char option[] = "-c";
    char text[64];
    strncpy(text, command, sizeof text - 1);
    text[sizeof text - 1] = '\0';
    char* const arguments[] = {shell, option, text, nullptr};
    pid_t child = 0;
    if (posix_spawn(&child, "/bin/sh", nullptr, &attributes, arguments, environ) == 0) {
        constexpr int ATTEMPTS = 100; // a second
        for (int i = 0; i < ATTEMPTS && waitpid(child, nullptr, WNOHANG) == 0; ++i)
            Pause(0, 10000000);
    }
    posix_spawnattr_destroy(&attributes);
}

// Ends the process by the signal's default action.
[[noreturn]] void EndBy(int signal) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    raise(signal);
    _exit(128 + signal); // only where the default action does not apply, as for a namespace's first process
}

} // namespace

struct sigaction SignalHandler::m_SigactNew[SIGNAL_LIMIT] = {};
struct sigaction SignalHandler::m_SigactOrg[SIGNAL_LIMIT] = {};
std::mutex SignalHandler::m_ObserverLock;
std::list<SignalEventObserver*> SignalHandler::m_Observer;

void SignalHandler::subscribe(SignalEventObserver* observer) {
    if (!observer)
        return;
    const std::lock_guard<std::mutex> lock(m_ObserverLock);
    m_Observer.push_back(observer);
}

void SignalHandler::setupSignal() {
    int ends[2];
    if (!dispatcher.joinable() && pipe2(ends, O_CLOEXEC) == 0) {
        fcntl(ends[1], F_SETFL, O_NONBLOCK); // the handler must never wait; the dispatcher does
        readEnd = ends[0];
        writeEnd = ends[1];
        // The dispatcher is born with the signals blocked, so that they interrupt other threads, not its
        // logging.
        const sigset_t blocked = NonFaultSignals();
        sigset_t before;
        pthread_sigmask(SIG_BLOCK, &blocked, &before);
        dispatcher = std::thread(dispatchLoop);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
    for (const int signal : HANDLED_SIGNALS)
        setSignalAction(signal);
    signal(SIGPIPE, SIG_IGN);
    QZ_LOG(INF, " * SetupSignal (SIGPIPE) : IGNORE SIGNAL.");
}

void SignalHandler::setSignalAction(int signal) {
    m_SigactNew[signal].sa_handler = handleSignal;
    sigemptyset(&m_SigactNew[signal].sa_mask);
    sigaction(signal, &m_SigactNew[signal], &m_SigactOrg[signal]);
    QZ_LOG(INF, " * handler registered. SetupSignal (" << strsignal(signal) << ":" << signal << ")");
}

void SignalHandler::handleSignal(int signal) {
    const int error = errno;
    if (IsFault(signal))
        endByFault(signal);
    Tell(
        static_cast<unsigned char>(signal)); // a full pipe holds thousands unread: one more tells nothing new
    errno = error;
}

void SignalHandler::dispatchLoop() {
    unsigned char number = STOP_TOKEN;
    for (;;) {
        const ssize_t count = read(readEnd, &number, 1);
        if (count == 1 && number != STOP_TOKEN)
            dispatch(number);
        else if (count >= 0 || errno != EINTR)
            return;
    }
}

void SignalHandler::dispatch(int signal) {
    QZ_LOG(INF, " Receives signal(" << strsignal(signal) << ":" << signal << "). ");
    switch (signal) {
    case SIGHUP:
    case SIGINT:
    case SIGQUIT:
    case SIGKILL:
    case SIGUSR1:
    case SIGALRM:
    case SIGTERM:
    case SIGTSTP: {
        std::list<SignalEventObserver*> observers;
        {
            const std::lock_guard<std::mutex> lock(m_ObserverLock);
            observers = m_Observer;
        }
        for (SignalEventObserver* observer : observers)
            observer->OnSignalEvent(signal, -1);
        break;
    }
    case SIGILL:
    case SIGABRT:
    case SIGFPE:
    case SIGSEGV:
        QZ_LOG(INF, "Abnormal process exit."); // the handler does the rest
        break;
    default:
        QZ_LOG(INF, " unregistered signal. ignore.");
    }
}

void SignalHandler::endByFault(int signal) {
    const auto self = static_cast<pid_t>(syscall(SYS_gettid));
    pid_t first = 0;
    if (!faultThread.compare_exchange_strong(first, self)) {
        // Another fault during the first one's end.  On the same thread it struck that very end: finish now.
        if (first == self)
            EndBy(faultSignal != 0 ? faultSignal.load() : signal);
        for (;;)
            Pause(60, 0);
    }
    faultSignal = signal;

    Tell(static_cast<unsigned char>(signal));
    Pause(2, 0);
    kill(getpid(), SIGCONT);
    char command[32];
    snprintf(command, sizeof command, "kill -CONT %d", static_cast<int>(getpid()));
    RunInShell(command);

    const struct sigaction& saved = m_SigactOrg[signal];
    if ((saved.sa_flags & SA_SIGINFO) != 0) {
        // It wants to know more than this handler was told: let the kernel call it.
        sigaction(signal, &saved, nullptr);
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, signal);
        pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
        raise(signal);
    } else if (saved.sa_handler != SIG_DFL && saved.sa_handler != SIG_IGN) {
        saved.sa_handler(signal);
    }
    EndBy(signal);
}

void SignalHandler::stop() {
    if (dispatcher.joinable()) {
        while (!Tell(STOP_TOKEN))
            Pause(0, 1000000); // full: the dispatcher is emptying it
        dispatcher.join();
    }
    while (faultThread != 0)
        Pause(60, 0);
}

void SignalHandler::blockInThisThread() {
    const sigset_t blocked = NonFaultSignals();
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
}

} // namespace qz::capture
