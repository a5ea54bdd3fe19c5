// The checks of the installation.  Tested in tests/control/ControlTest.cpp.
#include "control/Doctor.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <vector>

#include "common/Constants.h"
#include "common/FileLogger.h"
#include "common/HelperImage.h"
#include "common/Process.h"
#include "common/Util.h"
#include "control/Instance.h"
#include "control/Pictures.h"

using namespace qz::common;

namespace qz::control {

namespace {

const std::string DAEMON = AGENT_LATEST_PATH + "/" + DAEMON_NAME;
const std::string DECODER = AGENT_LATEST_PATH + "/djpeg";

constexpr size_t COMM_LENGTH = 15; // what the kernel keeps of a program's name
constexpr unsigned long long LEAST_SPACE = 8 << 20;
constexpr rlim_t LEAST_DESCRIPTORS = 64;
constexpr int BUILD_YEAR = 2024; // no right clock shows an earlier one

struct stat Status(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0)
        status.st_mode = 0;
    return status;
}

bool IsExecutable(const std::string& path) {
    return access(path.c_str(), X_OK) == 0;
}
bool IsWritable(const std::string& path) {
    return access(path.c_str(), W_OK) == 0;
}

bool Prints(const std::string& command) {
    return !Util::PopenCommand("timeout 5 sh -c '" + command + "' 2>/dev/null").empty();
}

bool HasSpace(const std::string& path) {
    struct statvfs space {};
    return statvfs(path.c_str(), &space) != 0 || 1ULL * space.f_bavail * space.f_frsize >= LEAST_SPACE;
}

bool NamesAreShort() {
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(AGENT_LATEST_PATH, none)) {
        if (entry.path().filename().string().size() > COMM_LENGTH)
            return false;
    }
    return true;
}

// The kernel forbids to open others' pipes with O_CREAT in a sticky folder, which is what a shell's ">" does.
bool PipeIsOpenToShells() {
    int strictness = 0;
    std::ifstream("/proc/sys/fs/protected_fifos") >> strictness;
    const struct stat folder = Status(TMP_DIR);
    const struct stat pipe = Status(CAPTURE_FIFO_PATH);
    const bool shared = (folder.st_mode & S_ISVTX) != 0 && (folder.st_mode & S_IWOTH) != 0;
    return strictness == 0 || !shared || pipe.st_uid == folder.st_uid || pipe.st_uid == geteuid();
}

bool VersionIsWhole() {
    std::vector<std::string> parts;
    Util::StringSplit(Util::GetVersion(VersionType::BUILD_FIRST_HALF), ".", parts);
    return parts.size() == 4;
}

bool ClockIsSet() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    return local.tm_year + 1900 >= BUILD_YEAR;
}

// No log of a day that is still to come.
bool ClockAgreesWithLogs() {
    const std::string today =
        std::string(DAEMON_NAME) + "-" + FileLogger::GetDateFormat(time(nullptr), "%Y%m%d") + ".log";
    std::error_code none;
    for (const auto& entry : std::filesystem::directory_iterator(LogDirectory(), none)) {
        const std::string name = entry.path().filename();
        if (name.size() == today.size() && name > today)
            return false;
    }
    return true;
}

bool HasDescriptors() {
    rlimit limit{};
    return getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= LEAST_DESCRIPTORS;
}

bool PidFileIsFresh() {
    const Instance daemon = Instance::Look();
    return daemon.pid == 0 || daemon.alive;
}

bool IsJpeg(const std::string& path) {
    int width = 0;
    int height = 0;
    return HelperImage::GetJPEGSize(path.c_str(), width, height) && width > 0 && height > 0;
}

struct Check {
    const char* name;
    ExitStatus status; // when it fails
    bool (*holds)();
    std::string wrong;
    std::string remedy; // a command
};

std::vector<Check> Checks() {
    const std::string failure = LIVEVIEW_FAILED_PATH;
    return {
        {"daemon", BROKEN, [] { return IsExecutable(DAEMON); }, DAEMON + " is missing or not executable",
         "dpkg --install plinta-capture_*.deb"},
        {"program names", TROUBLE, NamesAreShort,
         "a program's name has more than 15 characters, of which the kernel keeps no more", "ls " + AGENT_LATEST_PATH},
        {"encoder library", BROKEN,
         [] { return !IsExecutable(DAEMON) || !Prints("ldd " + DAEMON + " | grep \"not found\""); },
         "a library of the daemon is not found", "ldd " + DAEMON + "; ldconfig"},
        {"decoder", BROKEN, [] { return IsExecutable(DECODER); }, DECODER + " is missing or not executable",
         "ln -s \"$(command -v djpeg)\" " + DECODER},
        {"decoder's work", BROKEN,
         [] { return Prints(DECODER + " -gif -scale 1/8 " + LIVEVIEW_FAILED_PATH + " | grep -a ^GIF8"); },
         "the decoder does not make a scaled GIF of the failure picture", "apt-get install libjpeg-turbo-progs"},
        {"shared folder", BROKEN, [] { return Util::IsDirectory(TMP_DIR); }, TMP_DIR + " is missing",
         "mkdir -p " + TMP_DIR},
        {"shared folder's mode", BROKEN, [] { return IsWritable(TMP_DIR); }, TMP_DIR + " cannot be written by you",
         "ls -ld " + TMP_DIR + "; id"},
        {"shared folder's space", TROUBLE, [] { return HasSpace(TMP_DIR); }, "less than 8 MiB are free for pictures",
         "df -h " + TMP_DIR},
        {"pipe", BROKEN, [] { return Status(CAPTURE_FIFO_PATH).st_mode != 0; }, "the command pipe is missing",
         "mkfifo -m 660 " + CAPTURE_FIFO_PATH},
        {"pipe's kind", BROKEN,
         [] { return Status(CAPTURE_FIFO_PATH).st_mode == 0 || S_ISFIFO(Status(CAPTURE_FIFO_PATH).st_mode); },
         "something that is no pipe has the command pipe's name",
         "rm " + CAPTURE_FIFO_PATH + "; mkfifo -m 660 " + CAPTURE_FIFO_PATH},
        {"pipe's mode", BROKEN, [] { return Status(CAPTURE_FIFO_PATH).st_mode == 0 || IsWritable(CAPTURE_FIFO_PATH); },
         "you may not write into the command pipe", "chmod 660 " + CAPTURE_FIFO_PATH},
        {"pipe's owner", TROUBLE, PipeIsOpenToShells,
         "in a sticky folder the kernel keeps others from writing into this pipe with \">\"", "chmod o-w " + TMP_DIR},
        {"failure picture", TROUBLE, [] { return Status(LIVEVIEW_FAILED_PATH).st_mode != 0; },
         failure + " is missing: failures show the last pictures", "cp liveview_failed.jpg " + TMP_DIR},
        {"failure picture's kind", TROUBLE,
         [] { return Status(LIVEVIEW_FAILED_PATH).st_mode == 0 || IsJpeg(LIVEVIEW_FAILED_PATH); },
         failure + " is no readable JPEG file", "cp liveview_failed.jpg " + TMP_DIR},
        {"version file", TROUBLE, VersionIsWhole, VERSION_FILE_PATH + " does not hold a version like 1.0.0.0100",
         "cat " + VERSION_FILE_PATH},
        {"log folder", BROKEN, [] { return Util::IsDirectory(LogDirectory()) || IsWritable("/var/log"); },
         LogDirectory() + " is missing and cannot be made", "mkdir -p " + LogDirectory()},
        {"log folder's space", TROUBLE, [] { return HasSpace(LogDirectory()); }, "less than 8 MiB are free for logs",
         "df -h " + LogDirectory()},
        {"lock folder", BROKEN, [] { return IsWritable(LOCK_DIR); }, LOCK_DIR + " cannot be written by you",
         "ls -ld " + LOCK_DIR},
        {"lock file", BROKEN, [] { return Status(LockPath()).st_mode == 0 || S_ISREG(Status(LockPath()).st_mode); },
         LockPath() + " is no regular file, and the daemon refuses it", "rm " + LockPath()},
        {"pid folder", BROKEN, [] { return IsWritable(PID_DIR); }, PID_DIR + " cannot be written by you",
         "ls -ld " + PID_DIR},
        {"pid file", TROUBLE, PidFileIsFresh, PidPath() + " names a process that has gone", "rm " + PidPath()},
        {"pidof", TROUBLE, [] { return Prints("command -v pidof"); },
         "pidof is missing, and a running control process goes unnoticed", "apt-get install sysvinit-utils"},
        {"control process", TROUBLE, [] { return !Prints("pidof " + CONTROL_PROCESS_NAME); },
         CONTROL_PROCESS_NAME + " runs and has the encoder", "pidof " + CONTROL_PROCESS_NAME},
        {"clock", TROUBLE, ClockIsSet, "the clock has not been set", "date"},
        {"clock and logs", TROUBLE, ClockAgreesWithLogs, "there are logs of days that are still to come",
         "date; ls " + LogDirectory()},
        {"descriptors", TROUBLE, HasDescriptors, "fewer than 64 open files are allowed", "ulimit -n 1024"},
    };
}

} // namespace

Report Examine() {
    Report report;
    for (const Check& check : Checks()) {
        const bool good = check.holds();
        report.Flag(check.name, good);
        report.Line((good ? "good   " : "WRONG  ") + std::string(check.name) +
                    (good ? "" : ": " + check.wrong + "\n         try: " + check.remedy));
        if (!good)
            report.status = std::max(report.status, check.status);
    }
    return report;
}

} // namespace qz::control
