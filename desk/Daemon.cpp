// The daemon's process.  Tested in tests/desk/desk_test.py.
#include "desk/Daemon.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "desk/Refusal.h"

namespace qz::desk {

namespace {

// The daemon grants itself less than five.
constexpr std::chrono::seconds END_LIMIT{6};

bool IsOf(const std::string& variable, const std::string& name) {
    return variable.compare(0, name.size() + 1, name + "=") == 0;
}

// The desk's own environment without what the order replaces or takes away.
std::vector<std::string> Environment(const Daemon::Order& order) {
    std::vector<std::string> variables = order.environment;
    for (char** entry = environ; *entry; ++entry) {
        const std::string variable = *entry;
        const std::string name = variable.substr(0, variable.find('='));
        const auto same = [&name](const std::string& other) { return IsOf(other, name) || other == name; };
        if (std::none_of(order.environment.begin(), order.environment.end(), same) &&
            std::none_of(order.without.begin(), order.without.end(), same))
            variables.push_back(variable);
    }
    return variables;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

Daemon::Daemon(std::string program, std::string output, Started started, Ended ended)
    : m_Program(std::move(program)), m_Output(std::move(output)), m_Started(std::move(started)),
      m_Ended(std::move(ended)), m_Keeper([this] { Keep(); }) {}

Daemon::~Daemon() {
    {
        std::unique_lock<std::mutex> lock(m_Lock);
        m_Over = true;
        m_Changed.notify_all();
        if (m_Pid != 0)
            kill(m_Pid, SIGTERM);
        if (!m_Changed.wait_for(lock, END_LIMIT, [this] { return m_Pid == 0; }))
            kill(m_Pid, SIGKILL);
    }
    m_Keeper.join();
}

void Daemon::Start(Order order) {
    std::unique_lock<std::mutex> lock(m_Lock);
    if (m_Pid != 0 || m_Wanted || m_Over)
        throw Refusal{NOT_NOW, "the daemon is running already"};
    m_Order = std::move(order);
    m_Wanted = true;
    m_Changed.notify_all();
    m_Changed.wait(lock, [this] { return !m_Wanted || m_Over; });
    if (m_Error != 0)
        throw Refusal{TROUBLE, m_Program + ": " + strerror(m_Error)};
}

void Daemon::Signal(int number) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    if (m_Pid == 0 || kill(m_Pid, number) != 0)
        throw Refusal{NOT_NOW, "the daemon is not running"};
}

void Daemon::Spawn() {
    std::vector<std::string> arguments = m_Order.arguments;
    arguments.insert(arguments.begin(), m_Program);
    std::vector<std::string> environment = Environment(m_Order);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setpgroup(&attributes, 0); // Ctrl-C is for the desk, which then ends the daemon itself
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, m_Output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&files, STDOUT_FILENO, STDERR_FILENO);
    // The server's connections are not closed by an exec; a browser would wait for the end of an answer.
    posix_spawn_file_actions_addclosefrom_np(&files, STDERR_FILENO + 1);

    pid_t pid = 0;
    m_Error = posix_spawn(&pid, m_Program.c_str(), &files, &attributes, Pointers(arguments).data(),
                          Pointers(environment).data());
    m_Pid = m_Error == 0 ? pid : 0;
    posix_spawn_file_actions_destroy(&files);
    posix_spawnattr_destroy(&attributes);
}

void Daemon::Keep() {
    std::unique_lock<std::mutex> lock(m_Lock);
    for (;;) {
        m_Changed.wait(lock, [this] { return m_Wanted || m_Over; });
        if (m_Over)
            return;
        Spawn();
        const pid_t pid = m_Pid;
        if (pid != 0)
            m_Started(pid);
        m_Wanted = false;
        m_Changed.notify_all();
        if (pid == 0)
            continue;

        // Waited for first and reaped under the lock: until then nobody else can have its pid.
        lock.unlock();
        siginfo_t info{};
        while (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
        }
        lock.lock();
        int status = 0;
        waitpid(pid, &status, 0);
        m_Pid = 0;
        m_Ended(status);
        m_Changed.notify_all();
    }
}

} // namespace qz::desk
