// What a log line costs its caller, against spdlog's asynchronous logger writing the same bytes, and what a disabled
// one costs, against one load and one comparison.  Run in scripts/appliance.sh.
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "benchmarks/Measure.h"
#include "common/FileLogger.h"

using qz::common::FileLogger;

namespace qz::benchmarks {

constexpr size_t BURSTS = 4000;
// Before each burst, so that both workers are idle again; of changing length, for no worker's waits to keep step with
// the bursts.
constexpr int LEAST_PAUSE = 1500; // microseconds
constexpr int PAUSE_RANGE = 1000;
constexpr size_t QUEUE_SIZE = 8192;
constexpr int PRODUCTION_LEVEL = 4;

constexpr int DISABLED_ROUNDS = 2001; // short ones, so that most are left in peace
constexpr int DISABLED_LINES = 50000;

std::shared_ptr<spdlog::logger> peer;
std::atomic<int> plainGate{PRODUCTION_LEVEL};

// The two statements stand in functions whose names, and in lines whose numbers, have the same length.
[[gnu::noinline]] void LineOurs(int width, int height) {
    QZ_LOG(INF, "Resize complete. jpegSize: " << width << " X " << height);
}

[[gnu::noinline]] void LinePeer(int width, int height) {
    peer->log(spdlog::source_loc{__FILE__, __LINE__, "qz::benchmarks::LinePeer"}, spdlog::level::info,
              "Resize complete. jpegSize: {} X {}", width, height);
}

[[gnu::noinline]] void Unreached() {
    Fail("a disabled line was written");
}

[[gnu::noinline]] void DisabledLines() {
    for (int i = 0; i < DISABLED_LINES; ++i)
        QZ_LOG(DBG, "Resize complete. jpegSize: " << i);
}

[[gnu::noinline]] void PlainComparisons() {
    for (int i = 0; i < DISABLED_LINES; ++i) {
        if (plainGate.load(std::memory_order_relaxed) >= common::TAG_DBG.threshold)
            Unreached();
    }
}

namespace {

template <typename Operation>
double TimePerPiece(int pieces, Operation operation) {
    const double begin = WallTime();
    operation();
    return (WallTime() - begin) / pieces;
}

double Burst(void (*line)(int, int), int length) {
    static std::minstd_rand random;
    Pause(std::chrono::microseconds(LEAST_PAUSE + static_cast<int>(random() % PAUSE_RANGE)));
    return TimePerPiece(length, [line, length] {
        for (int i = 0; i < length; ++i)
            line(1920, 1080 + i);
    });
}

void CompareBursts(Report& report, int length, double limit) {
    std::vector<double> ours;
    std::vector<double> theirs;
    for (size_t i = 0; i < BURSTS; ++i) {
        if (i % 2 == 1)
            theirs.push_back(Burst(LinePeer, length));
        ours.push_back(Burst(LineOurs, length));
        if (i % 2 == 0)
            theirs.push_back(Burst(LinePeer, length));
    }
    report.Ratio("a line in bursts of " + std::to_string(length) + ": ours to spdlog", ours, theirs, limit);
}

void CompareDisabled(Report& report, double limit) {
    std::vector<double> ours;
    std::vector<double> plain;
    for (int i = 0; i < DISABLED_ROUNDS; ++i) {
        ours.push_back(TimePerPiece(DISABLED_LINES, DisabledLines));
        plain.push_back(TimePerPiece(DISABLED_LINES, PlainComparisons));
    }
    report.Ratio("a disabled line: to load and comparison", ours, plain, limit);
}

// Whether the file holds that many lines, all of one length, and which.
size_t LineLength(const std::string& path, size_t count) {
    std::ifstream file(path);
    std::set<size_t> lengths;
    size_t lines = 0;
    for (std::string line; std::getline(file, line); ++lines)
        lengths.insert(line.size());
    Require(lines == count && lengths.size() == 1, path + ": not the lines that were written");
    return *lengths.begin();
}

} // namespace

} // namespace qz::benchmarks

int main() {
    using namespace qz::benchmarks;
    const std::string ourFile = LOG_DIRECTORY + "/ours-" + FileLogger::GetDateFormat(time(nullptr), "%Y%m%d") + ".log";
    const std::string peerFile = LOG_DIRECTORY + "/peer.log";
    Require(FileLogger::instance()->Initialize(LOG_DIRECTORY, "ours", PRODUCTION_LEVEL, "%Y%m%d", false), "no log");
    spdlog::init_thread_pool(QUEUE_SIZE, 1);
    peer = spdlog::create_async<spdlog::sinks::basic_file_sink_mt>("peer", peerFile); // the block policy
    peer->set_pattern("%Y-%m-%d %H:%M:%S.%e||INF|NA|[%P][%!] %v [L:%#]");

    Report report("The log");
    CompareBursts(report, 1, 1.5);
    CompareBursts(report, 10, 2.0);
    // A quarter of a nanosecond each: the limit leaves room for how the two loops lie in memory, not for a call.
    CompareDisabled(report, 1.5);

    FileLogger::instance()->Drain(std::chrono::seconds(1));
    delete FileLogger::instance();
    peer.reset();
    spdlog::shutdown();
    const size_t count = BURSTS * (1 + 10);
    Require(LineLength(ourFile, count) == LineLength(peerFile, count), "the lines differ in length");
    return report.Status();
}
