// The decoder: how it is started, waited for and killed.  Tested in tests/capture/SnapshotTest.cpp and
// CommandsTest.cpp.
#include "capture/Converter.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "common/Constants.h"
#include "common/FileAccess.h"
#include "common/SignalMask.h"

using qz::common::AGENT_LATEST_PATH;
using qz::common::OpenRegularForReading;
using qz::common::SignalSet;
using qz::common::UniqueFd;

namespace qz::capture {

namespace {

// The decoder's warning status: the picture is damaged, but there is one.
constexpr int WARNING = 2;

constexpr char GIF_TRAILER = ';'; // the last byte of every whole GIF file

// What posix_spawn is told about the child: nothing inherited but 0 to 2, which lead nowhere, no signal blocked, and
// those that this process ignores back at their defaults.
class SpawnSetup {
public:
    SpawnSetup() {
        posix_spawnattr_init(&m_Attributes);
        const sigset_t none = SignalSet({}), ignored = SignalSet({SIGPIPE, SIGXFSZ});
        posix_spawnattr_setsigmask(&m_Attributes, &none);
        posix_spawnattr_setsigdefault(&m_Attributes, &ignored);
        posix_spawnattr_setflags(&m_Attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        posix_spawn_file_actions_init(&m_Files);
        posix_spawn_file_actions_addopen(&m_Files, STDIN_FILENO, "/dev/null", O_RDWR, 0);
        posix_spawn_file_actions_adddup2(&m_Files, STDIN_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&m_Files, STDIN_FILENO, STDERR_FILENO);
        // Ours are close-on-exec; this is for the encoder library's.  Older C libraries cannot say it.
#if defined(__GLIBC__) && (__GLIBC__ > 2 || __GLIBC_MINOR__ >= 34)
        posix_spawn_file_actions_addclosefrom_np(&m_Files, STDERR_FILENO + 1);
#endif
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&m_Files);
        posix_spawnattr_destroy(&m_Attributes);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    // The child's pid, or 0.
    pid_t Start(std::vector<std::string> command) {
        std::vector<char*> arguments;
        for (std::string& argument : command)
            arguments.push_back(&argument[0]);
        arguments.push_back(nullptr);
        pid_t child = 0;
        return posix_spawn(&child, arguments[0], &m_Files, &m_Attributes, arguments.data(), environ) == 0 ? child : 0;
    }

private:
    posix_spawnattr_t m_Attributes;
    posix_spawn_file_actions_t m_Files;
};

// Whether the file ends as a whole GIF file does.
bool IsWhole(const std::string& path) {
    const UniqueFd file = OpenRegularForReading(path.c_str());
    char last = 0;
    return file.Valid() && lseek(file.Get(), -1, SEEK_END) > 0 && read(file.Get(), &last, 1) == 1 &&
           last == GIF_TRAILER;
}

} // namespace

std::atomic<pid_t> Converter::m_Running{0};

bool Converter::Convert(const char* scale, const std::string& dst, const std::string& src) {
    const pid_t child = Start(scale, dst, src);
    if (child == 0)
        return false;
    siginfo_t info{};
    if (!Collect(child, info))
        return IsWhole(dst); // an unknown status is not a failed one
    return info.si_code == CLD_EXITED && (info.si_status == 0 || info.si_status == WARNING);
}

// The start itself may hang, on a disk that does: it is not done under the lock, which Bar takes.
pid_t Converter::Start(const char* scale, const std::string& dst, const std::string& src) {
    {
        const std::lock_guard<std::mutex> lock(m_Lock);
        if (m_Barred)
            return 0;
    }
    const pid_t child =
        SpawnSetup().Start({AGENT_LATEST_PATH + "/djpeg", "-gif", "-scale", scale, "-outfile", dst, src});
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Running = child;
    if (child > 0 && m_Barred)
        kill(child, SIGKILL);
    return child;
}

// Waits for the child.  False when somebody else has collected its status: the kernel, where SIGCHLD is ignored, or a
// library that collects every child.
bool Converter::Collect(pid_t child, siginfo_t& info) {
    // Without collecting it at first, so that its pid stays its own until no one can kill it any more.
    while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Running = 0;
    return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED) == 0;
}

void Converter::Bar() {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Barred = true;
    KillRunning();
}

void Converter::KillRunning() {
    const pid_t child = m_Running;
    if (child > 0)
        kill(child, SIGKILL);
}

} // namespace qz::capture
