// The command client: many clients at once lose and misread nothing, no snapshot that they report is an old one, and
// they end soon after the daemon has published.  The real daemon with the simulator and real capturectl processes.  Run
// by scripts/benchmark.sh, on the private appliance.
//
//     bench_control [COMMANDS [SNAPSHOTS]]      default 2000 and 400; 100000 and 10000 take half an hour
#include <fcntl.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "benchmarks/Measure.h"
#include "common/Constants.h"
#include "common/LogReader.h"
#include "common/Owners.h"

using qz::common::LogReader;
using qz::common::UniqueFd;

namespace qz::benchmarks {

namespace {

constexpr int COMMAND_CLIENTS = 8;
constexpr int SNAPSHOT_CLIENTS = 4;
constexpr int FAILURE_EVERY = 50; // of the daemon's snapshots one fails, so that a misread answer shows
constexpr int TIMED_EXITS = 200;
constexpr double EXIT_LIMIT = 5; // milliseconds
constexpr const char* TIMEOUT = "60";

const std::string CONTROL_PATH = common::TMP_DIR + "/control";
const std::string COPIES = "/opt/copies";

pid_t Spawn(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    Require(posix_spawn(&pid, arguments[0], &files, nullptr, arguments.data(), environ) == 0,
            "cannot start " + words[0]);
    posix_spawn_file_actions_destroy(&files);
    return pid;
}

int Collect(pid_t pid) {
    int status = 0;
    Require(waitpid(pid, &status, 0) == pid && WIFEXITED(status), "a client was killed");
    return WEXITSTATUS(status);
}

int Client(const std::vector<std::string>& words) {
    std::vector<std::string> line = {QZ_CLIENT};
    line.insert(line.end(), words.begin(), words.end());
    line.insert(line.end(), {"--timeout", TIMEOUT});
    return Collect(Spawn(line));
}

// The work, called with the clients' numbers from 0, shared out among as many threads.
void OnClients(int clients, int count, const std::function<void(int)>& work) {
    std::atomic<int> next{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([&next, &work, count] {
            for (int number = next++; number < count; number = next++)
                work(number);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

// How many of the daemon's records begin so.
int CountRecords(const std::string& beginning) {
    int count = 0;
    LogReader log("/var/log/tormel/agent", "capture");
    while (const auto record = log.Next())
        count += record->message.compare(0, beginning.size(), beginning) == 0 ? 1 : 0;
    return count;
}

// A daemon that is ready, and its end.
class Daemon {
public:
    Daemon() : m_Pid(Spawn({QZ_DAEMON})) { Require(Client({"wait-ready"}) == 0, "the daemon does not start"); }
    void End() const { Require(Client({"end"}) == 0 && Collect(m_Pid) == 0, "the daemon did not end in order"); }

private:
    const pid_t m_Pid;
};

void FailNextSnapshot() {
    std::ofstream(CONTROL_PATH, std::ios::app) << "fail kt_md_capture 1\n";
}

// Every answer is counted against what the daemon itself logged.  With a small picture, so that the daemon is quick,
// and with failures among the snapshots.
void Commands(Report& report, int count) {
    const std::string picture = common::TMP_DIR + "/small.jpg";
    Require(
        std::system(("{ printf 'P5 16 16 255\\n'; head -c 256 /dev/zero | tr '\\0' x; } | cjpeg -outfile " + picture)
                        .c_str()) == 0,
        "no picture");
    std::ofstream(CONTROL_PATH).flush();
    setenv("XENC_PICTURE", picture.c_str(), 1);
    setenv("XENC_CONTROL", CONTROL_PATH.c_str(), 1);
    const Daemon daemon;
    const int doneBefore = CountRecords("Resize complete");
    std::atomic<int> succeeded{0};
    std::atomic<int> failed{0};
    const double begin = WallTime();
    OnClients(COMMAND_CLIENTS, count, [&](int number) {
        if (number % FAILURE_EVERY == FAILURE_EVERY - 1)
            FailNextSnapshot();
        const int status = Client({"snapshot"});
        Require(status == 0 || status == 1, "a client ended with status " + std::to_string(status));
        ++(status == 0 ? succeeded : failed);
    });
    const int done = CountRecords("Resize complete") - doneBefore;
    const int refused = CountRecords("kt_md_capture failed");
    std::printf("  %d commands from %d clients in %.0f s: the daemon did %d and failed %d\n", count, COMMAND_CLIENTS,
                (WallTime() - begin) / 1e6, done, refused);
    report.None("commands lost", std::abs(count - done - refused));
    report.None("answers misread", std::abs(done - succeeded) + std::abs(refused - failed));
    daemon.End();
    unsetenv("XENC_PICTURE");
    unsetenv("XENC_CONTROL");
}

// Every snapshot that was reported is another picture: the simulator's test card shows the frame's number.
void Snapshots(Report& report, int count) {
    std::mutex lock;
    std::set<std::string> seen;
    int stale = 0;
    std::filesystem::create_directories(COPIES);
    OnClients(SNAPSHOT_CLIENTS, count, [&](int number) {
        const std::string copy = COPIES + "/" + std::to_string(number) + ".jpg";
        Require(Client({"snapshot", "-o", copy}) == 0, "a snapshot failed");
        std::ifstream in(copy, std::ios::binary);
        std::string bytes{std::istreambuf_iterator<char>(in), {}};
        unlink(copy.c_str());
        const std::lock_guard<std::mutex> guard(lock);
        stale += seen.insert(std::to_string(std::hash<std::string>()(bytes))).second ? 0 : 1;
    });
    std::printf("  %d snapshots by %d clients\n", count, SNAPSHOT_CLIENTS);
    report.None("stale snapshots", stale);
}

// From the renaming of the live view to the end of the client, as a third party sees both.
void Exits(Report& report) {
    std::vector<double> times;
    for (int i = 0; i < TIMED_EXITS; ++i) {
        const UniqueFd watch(inotify_init1(IN_CLOEXEC));
        Require(inotify_add_watch(watch.Get(), common::TMP_DIR.c_str(), IN_MOVED_TO) >= 0, "no inotify");
        const pid_t client = Spawn({QZ_CLIENT, "snapshot"});
        alignas(inotify_event) char events[4096];
        for (int renamed = 0; renamed < 2;) { // the snapshot, then the live view
            const ssize_t count = read(watch.Get(), events, sizeof events);
            for (ssize_t at = 0; at < count; ++renamed)
                at += static_cast<ssize_t>(sizeof(inotify_event)) + reinterpret_cast<inotify_event*>(events + at)->len;
        }
        const double begin = WallTime();
        Require(Collect(client) == 0, "a snapshot failed");
        times.push_back((WallTime() - begin) / 1e3);
    }
    report.Bounded("last rename to the client's exit", times, "ms", EXIT_LIMIT, 0);
}

} // namespace

} // namespace qz::benchmarks

int main(int argc, char** argv) {
    using namespace qz::benchmarks;
    const int commands = argc > 1 ? std::atoi(argv[1]) : 2000;
    const int snapshots = argc > 2 ? std::atoi(argv[2]) : 400;
    Report report("The command client");
    Commands(report, commands);
    const Daemon daemon;
    Snapshots(report, snapshots);
    Exits(report);
    daemon.End();
    return report.Status();
}
