// One picture, published: XEncCapture, Resize, CopyFileBinary.  Tested in tests/capture/SnapshotTest.cpp.
#include "capture/Capture.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <vector>

#include "capture/Config.h"
#include "common/Constants.h"
#include "common/FileLogger.h"
#include "common/HelperImage.h"

using qz::common::AGENT_LATEST_PATH;
using qz::common::HelperImage;
using qz::common::LIVEVIEW_FAILED_PATH;
using qz::common::LIVEVIEW_PATH;
using qz::common::LIVEVIEW_TMP_PATH;
using qz::common::MD_CAPTURE_PATH;
using qz::common::MD_CAPTURE_TMP_PATH;
using qz::common::UniqueFd;

namespace qz::capture {

namespace {

constexpr float LANDSCAPE_TARGET = 960;
constexpr float VERTICAL_TARGET = 1024;

// The decoder's warning status: the picture is damaged, but there is one.
constexpr int DECODER_WARNING = 2;

struct ScaleStep {
    int rate;
    const char* fraction;
};

// Every other rate is converted at full size, 0 (a picture of more than ten times the target) included:
// deliberate.
constexpr ScaleStep SCALE_STEPS[] = {{10, "1/8"}, {20, "2/8"}, {30, "3/8"}, {40, "3/8"}, {50, "4/8"},
                                     {60, "5/8"}, {70, "5/8"}, {80, "6/8"}, {90, "7/8"}};

// What posix_spawn is told about the child: nothing inherited but 0 to 2, which lead nowhere, no signal
// blocked, and SIGPIPE, which this process ignores, back at its default.
class SpawnSetup {
public:
    SpawnSetup() {
        posix_spawnattr_init(&m_Attributes);
        sigset_t set;
        sigemptyset(&set);
        posix_spawnattr_setsigmask(&m_Attributes, &set);
        sigaddset(&set, SIGPIPE);
        posix_spawnattr_setsigdefault(&m_Attributes, &set);
        posix_spawnattr_setflags(&m_Attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        posix_spawn_file_actions_init(&m_Files);
        posix_spawn_file_actions_addopen(&m_Files, STDIN_FILENO, "/dev/null", O_RDWR, 0);
        posix_spawn_file_actions_adddup2(&m_Files, STDIN_FILENO, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&m_Files, STDIN_FILENO, STDERR_FILENO);
        // Ours are close-on-exec; this is for the encoder library's.  Older C libraries cannot say it.
#if __GLIBC_PREREQ(2, 34)
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
        return posix_spawn(&child, arguments[0], &m_Files, &m_Attributes, arguments.data(), environ) == 0
                   ? child
                   : 0;
    }

private:
    posix_spawnattr_t m_Attributes;
    posix_spawn_file_actions_t m_Files;
};

// Whether all of src arrived in dst, which a full disk may deny as late as at the closing.
bool CopyContents(const std::string& src, const std::string& dst) {
    const UniqueFd in(open(src.c_str(), O_RDONLY | O_CLOEXEC));
    UniqueFd out(open(dst.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!in.Valid() || !out.Valid())
        return false;
    char buffer[64 * 1024];
    for (;;) {
        const ssize_t count = read(in.Get(), buffer, sizeof buffer);
        if (count == 0)
            return out.Reset();
        if (count < 0 && errno != EINTR)
            return false;
        for (ssize_t done = 0; done < count;) {
            const ssize_t written = write(out.Get(), buffer + done, static_cast<size_t>(count - done));
            if (written < 0 && errno != EINTR)
                return false;
            done += std::max<ssize_t>(written, 0);
        }
    }
}

} // namespace

std::mutex Capture::m_XEncMutex;

bool Capture::XEncCapture() {
    const std::lock_guard<std::mutex> lock(m_XEncMutex);
    if (!m_XEncInit || !m_MdInit || !m_MdStart) {
        QZ_LOG(ERR, "Capture not initialized");
        return false;
    }
    if (m_MdState != STATE_ENCODING)
        return false;
    if (kt_md_capture(MD_CAPTURE_TMP_PATH.c_str()) == 0) {
        QZ_LOG(ERR, "kt_md_capture failed");
        return false;
    }
    QZ_LOG(INF, "kt_md_capture success");
    rename(MD_CAPTURE_TMP_PATH.c_str(), MD_CAPTURE_PATH.c_str());
    Resize();
    return true;
}

Capture::Scale Capture::ScaleFor(int width, int height, bool vertical) {
    const float target = vertical ? VERTICAL_TARGET : LANDSCAPE_TARGET;
    // Single precision throughout: 0.7 x 100 must be 70, not 69.
    const float ratio = std::floor(target / static_cast<float>(std::max(width, height)) * 10.0F) / 10.0F;
    const float percent = ratio * 100.0F;
    int rate = static_cast<int>(percent);
    if (vertical && rate > 10)
        rate -= 10; // vertical pictures come out one step smaller, on purpose
    const auto* step = std::find_if(std::begin(SCALE_STEPS), std::end(SCALE_STEPS),
                                    [rate](const ScaleStep& candidate) { return candidate.rate == rate; });
    return {ratio, rate, step == std::end(SCALE_STEPS) ? "8/8" : step->fraction};
}

void Capture::Resize() {
    int width = 0;
    int height = 0;
    if (!HelperImage::GetJPEGSize(MD_CAPTURE_PATH.c_str(), width, height) || width <= 0 || height <= 0) {
        QZ_LOG(ERR, "GetSize failed. jpegSize: " << width << " X " << height);
        return;
    }
    const bool vertical =
        Config::instance()->ScreenMode() % 2 == 1; // signed: a negative mode is not vertical
    const Scale scale = ScaleFor(width, height, vertical);

    // A leftover of an interrupted conversion must not be published when this one leaves nothing.
    unlink(LIVEVIEW_TMP_PATH.c_str());
    if (!Convert(scale.fraction))
        unlink(LIVEVIEW_TMP_PATH.c_str());
    rename(LIVEVIEW_TMP_PATH.c_str(), LIVEVIEW_PATH.c_str());
    QZ_LOG(INF, "Resize complete. jpegSize: " << width << " X " << height << ", rate: " << scale.rate
                                              << ", ratio: " << scale.ratio << ", vertical: " << vertical);
}

bool Capture::Convert(const char* fraction) {
    SpawnSetup setup;
    pid_t child = 0;
    {
        const std::lock_guard<std::mutex> lock(m_ConverterLock);
        child = setup.Start({AGENT_LATEST_PATH + "/djpeg", "-gif", "-scale", fraction, "-outfile",
                             LIVEVIEW_TMP_PATH, MD_CAPTURE_PATH});
        m_Converter = child;
    }
    if (child == 0)
        return false;
    // Waited for without collecting it, so that its pid stays its own until no one can kill it any more.
    siginfo_t info{};
    while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    const std::lock_guard<std::mutex> lock(m_ConverterLock);
    m_Converter = 0;
    int status = 0;
    const bool collected = waitpid(child, &status, 0) == child;
    return collected && WIFEXITED(status) &&
           (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == DECODER_WARNING);
}

void Capture::KillConverter() {
    const std::lock_guard<std::mutex> lock(m_ConverterLock);
    if (m_Converter > 0)
        kill(m_Converter, SIGKILL);
}

bool Capture::CopyFileBinary(std::string src, std::string dst) {
    if (src.empty() || dst.empty())
        return false;
    struct stat status {};
    if (lstat(src.c_str(), &status) != 0 || S_ISDIR(status.st_mode))
        return false;
    unlink(dst.c_str());
    if (!CopyContents(src, dst)) {
        QZ_LOG(ERR, "cannot read File");
        return false;
    }
    QZ_LOG(INF, "copy finished: `" << src << "` to `" << dst << "`");
    return true;
}

void Capture::PublishFailurePicture() {
    CopyFileBinary(LIVEVIEW_FAILED_PATH, MD_CAPTURE_PATH);
    CopyFileBinary(LIVEVIEW_FAILED_PATH, LIVEVIEW_PATH);
}

} // namespace qz::capture
