// The daemon's start and its ends: how long from the trigger to the exit of the process, idle in its select; how long
// from the start to "[Ready]"; the idle daemon's memory.  Run in scripts/appliance.sh.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "benchmarks/Measure.h"
#include "common/Constants.h"
#include "common/Owners.h"
#include "xenc/xenc.h"

using qz::common::UniqueFd;

namespace qz::benchmarks {

namespace {

constexpr int ENDS = 100;
constexpr double MEDIAN_LIMIT = 3; // milliseconds, besides the library's own closing
constexpr double LONGEST_LIMIT = 50;
constexpr std::chrono::milliseconds POLL_INTERVAL{1};
constexpr std::chrono::milliseconds IDLE_TIME{20}; // from the session's start into the select
constexpr double START_LIMIT = 10e6;

const std::string CONTROL_PATH = common::TMP_DIR + "/control.fifo";

std::string ReadFile(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Everything logged since the directory was emptied.
std::string LogText() {
    std::string text;
    for (const auto& file : std::filesystem::directory_iterator(LOG_DIRECTORY))
        text += ReadFile(file.path().string());
    return text;
}

// One write, by a writer who comes for it and goes.
void WriteTo(const std::string& fifo, const std::string& text) {
    const UniqueFd fd(open(fifo.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    Require(fd.Valid() && write(fd.Get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()),
            fifo + " has no reader");
}

// The time of the log line that holds the text, in milliseconds.
double LineTime(const std::string& log, const std::string& text) {
    const size_t at = log.find(text);
    Require(at != std::string::npos, "the log does not tell of " + text);
    const size_t line = log.rfind('\n', at) == std::string::npos ? 0 : log.rfind('\n', at) + 1;
    tm local{};
    local.tm_isdst = -1;
    const char* rest = strptime(log.c_str() + line, "%Y-%m-%d %H:%M:%S.", &local);
    Require(rest != nullptr, "a log line without a time");
    return static_cast<double>(mktime(&local)) * 1e3 + std::atof(std::string(rest, 3).c_str());
}

double SystemTime() {
    return std::chrono::duration<double, std::milli>(std::chrono::system_clock::now().time_since_epoch()).count();
}

double ResidentMiB(pid_t pid) {
    const std::string status = ReadFile("/proc/" + std::to_string(pid) + "/status");
    const size_t at = status.find("VmRSS:");
    Require(at != std::string::npos, "no VmRSS");
    return std::atof(status.c_str() + at + 6) / 1024;
}

struct Life {
    double toReady;  // milliseconds
    double resident; // MiB
    double toExit;   // milliseconds
};

pid_t Start() {
    for (const auto& file : std::filesystem::directory_iterator(LOG_DIRECTORY))
        std::filesystem::remove(file);
    char program[] = QZ_DAEMON;
    char* const arguments[] = {program, nullptr};
    pid_t pid = 0;
    Require(posix_spawn(&pid, program, nullptr, nullptr, arguments, environ) == 0, "cannot start the daemon");
    return pid;
}

void WaitUntilIdle() {
    const double limit = WallTime() + START_LIMIT;
    while (LogText().find("Initialize succeed") == std::string::npos) {
        Require(WallTime() < limit, "the daemon does not start");
        Pause(POLL_INTERVAL);
    }
    Pause(IDLE_TIME);
}

Life Live(const std::function<void(pid_t)>& trigger) {
    Life life{};
    const double start = SystemTime();
    const pid_t pid = Start();
    WaitUntilIdle();
    life.toReady = LineTime(LogText(), "[Ready]") - start;
    life.resident = ResidentMiB(pid);

    const double begin = WallTime();
    trigger(pid);
    int status = 0;
    Require(waitpid(pid, &status, 0) == pid, "waitpid");
    life.toExit = (WallTime() - begin) / 1e3;
    Require(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the daemon did not end in order");
    return life;
}

// What the encoder library itself takes to close a session, in milliseconds.
double ClosingTime() {
    Require(kt_init(3) != 0 && kt_md_init(0, 1, 23, 0, 1) != 0 && kt_md_start() != 0, "no session");
    const double begin = WallTime();
    Require(kt_md_stop() != 0 && kt_md_uninit() != 0 && kt_uninit() != 0, "the session did not close");
    return (WallTime() - begin) / 1e3;
}

} // namespace

} // namespace qz::benchmarks

int main() {
    using namespace qz::benchmarks;
    Require(mkfifo(CONTROL_PATH.c_str(), 0666) == 0, "cannot make the control FIFO");

    const struct {
        const char* name;
        std::function<void(pid_t)> trigger;
    } ends[] = {{"SIGTERM to exit", [](pid_t pid) { kill(pid, SIGTERM); }},
                {"capture_end to exit", [](pid_t) { WriteTo(qz::common::CAPTURE_FIFO_PATH, "capture_end"); }},
                {"HDMI change to exit", [](pid_t) { WriteTo(CONTROL_PATH, "md 17\n"); }}};
    std::vector<double> toExit[std::size(ends)];
    std::vector<double> toReady;
    std::vector<double> resident;
    std::vector<double> closing;
    for (int i = 0; i < ENDS; ++i) {
        unsetenv("XENC_CONTROL"); // the lines in the FIFO are the daemon's
        closing.push_back(ClosingTime());
        setenv("XENC_CONTROL", CONTROL_PATH.c_str(), 1);
        for (size_t kind = 0; kind < std::size(ends); ++kind) {
            const Life life = Live(ends[kind].trigger);
            toExit[kind].push_back(life.toExit);
            toReady.push_back(life.toReady);
            resident.push_back(life.resident);
        }
    }

    Report report("The daemon's start and ends");
    for (size_t kind = 0; kind < std::size(ends); ++kind)
        report.Bounded(ends[kind].name, toExit[kind], "ms", MEDIAN_LIMIT + Median(closing), LONGEST_LIMIT);
    report.Plain("the encoder library's own closing", closing, "ms");
    report.Plain("start to [Ready]", toReady, "ms");
    report.Plain("resident memory of the idle daemon", resident, "MiB");
    return report.Status();
}
