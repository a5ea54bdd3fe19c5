// What a request costs beyond what it cannot do without: Capture::XEncCapture against rename, posix_spawn of the same
// djpeg with the same arguments, waitpid, rename.  Run in scripts/appliance.sh.
//
//     bench_request [LOG-LEVEL]      4 as in production; 1 shows what the log lines cost
#include <dlfcn.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "benchmarks/Measure.h"
#include "capture/Capture.h"
#include "common/Constants.h"
#include "common/FileLogger.h"
#include "xenc/simulator/simulator.h"
#include "xenc/xenc.h"

using qz::capture::Capture;
using qz::common::FileLogger;

namespace qz::benchmarks {

namespace {

constexpr size_t ROUNDS = 101;
constexpr size_t BLOCK = 10;                        // rounds between taking and giving back the resident memory
constexpr size_t RESIDENT = size_t{200} << 20;      // bytes
constexpr std::chrono::milliseconds SETTLE_TIME{2}; // for the log's worker to write the last line
constexpr int PRODUCTION_LEVEL = 4;
constexpr double UNCHANGED = 1.03; // what repeated runs differ by

struct Cost {
    double wall = 0;
    double cpu = 0;
};

Cost operator-(const Cost& left, const Cost& right) {
    return {left.wall - right.wall, left.cpu - right.cpu};
}

// Of the last kt_md_capture, the callbacks that follow from it included.
Cost insideLibrary;

// The wall time ends with the operation; the processor time also counts what it left to other threads.
template <typename Operation>
Cost Measure(Operation operation) {
    const double cpu = CpuTime();
    const double wall = WallTime();
    operation();
    const double elapsed = WallTime() - wall;
    Pause(SETTLE_TIME);
    return {elapsed, CpuTime() - cpu};
}

// Tells the live views of two requests apart.
ino_t LiveView() {
    struct stat status {};
    return stat(common::LIVEVIEW_PATH.c_str(), &status) == 0 && status.st_size > 0 ? status.st_ino : 0;
}

template <typename Operation>
Cost MeasureLiveView(Operation operation) {
    const ino_t before = LiveView();
    const Cost cost = Measure(operation);
    const ino_t after = LiveView();
    Require(after != 0 && after != before, "a round made no live view");
    return cost;
}

// What a request cannot do without, from the library's picture to the published live view.
void Floor(const char* fraction) {
    Require(kt_md_capture(common::MD_CAPTURE_TMP_PATH.c_str()) != 0, "kt_md_capture failed");
    rename(common::MD_CAPTURE_TMP_PATH.c_str(), common::MD_CAPTURE_PATH.c_str());
    std::string words[] = {common::AGENT_LATEST_PATH + "/djpeg",
                           "-gif",
                           "-scale",
                           fraction,
                           "-outfile",
                           common::LIVEVIEW_TMP_PATH,
                           common::MD_CAPTURE_PATH};
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(&word[0]);
    arguments.push_back(nullptr);
    pid_t child = 0;
    int status = 0;
    Require(posix_spawn(&child, arguments[0], nullptr, nullptr, arguments.data(), environ) == 0 &&
                waitpid(child, &status, 0) == child && status == 0,
            "djpeg failed");
    rename(common::LIVEVIEW_TMP_PATH.c_str(), common::LIVEVIEW_PATH.c_str());
}

// Both variants begin with the library's picture, so that it leaves the machine in the same state for both, and in both
// its part is taken off.
struct Rounds {
    std::vector<Cost> request;
    std::vector<Cost> floor;
    std::vector<Cost> library; // its part of the requests

    void Add(Capture& capture, const char* fraction) {
        const bool floorFirst = floor.size() % 2 == 1;
        if (floorFirst)
            AddFloor(fraction);
        const Cost cost = MeasureLiveView([&capture] { Require(capture.XEncCapture(), "a request failed"); });
        request.push_back(cost - insideLibrary);
        library.push_back(insideLibrary);
        if (!floorFirst)
            AddFloor(fraction);
    }

private:
    void AddFloor(const char* fraction) {
        const Cost cost = MeasureLiveView([fraction] { Floor(fraction); });
        floor.push_back(cost - insideLibrary);
    }
};

std::vector<double> Part(const std::vector<Cost>& costs, double Cost::*part) {
    std::vector<double> values;
    for (const Cost& cost : costs)
        values.push_back(cost.*part);
    return values;
}

// The rounds of one picture, in blocks with and without the memory.
void Run(Report& report, const std::string& picture, int width, int height, double limit) {
    setenv("XENC_PICTURE", picture.c_str(), 1);
    Capture capture;
    Require(capture.Initialize(), "the session did not open");
    const char* fraction = Capture::ScaleFor(width, height, false).fraction;

    Rounds light;
    Rounds heavy;
    while (heavy.floor.size() < ROUNDS) {
        const size_t end = std::min(light.floor.size() + BLOCK, ROUNDS);
        Require(capture.XEncCapture(), "a request failed"); // warms up
        while (light.floor.size() < end)
            light.Add(capture, fraction);
        const std::vector<char> resident(RESIDENT, 'x');
        Require(capture.XEncCapture(), "a request failed");
        while (heavy.floor.size() < end)
            heavy.Add(capture, fraction);
    }

    const std::string size = std::to_string(width) + " x " + std::to_string(height);
    const struct {
        const char* name;
        double Cost::*part;
    } clocks[] = {{"wall", &Cost::wall}, {"cpu", &Cost::cpu}};
    for (const auto& clock : clocks) {
        const auto values = [&clock](const std::vector<Cost>& costs) { return Part(costs, clock.part); };
        const std::string name = size + ", " + clock.name;
        report.Ratio(name + ": request to floor", values(light.request), values(light.floor), limit);
        report.Ratio(name + ", 200 MiB: request to floor", values(heavy.request), values(heavy.floor), limit);
        report.Ratio(name + ": 200 MiB to none", values(heavy.request), values(light.request), UNCHANGED);
        report.Plain(name + ": the library's part", values(light.library), "us");
    }
}

void MakeSmallPicture(const std::string& path) {
    const std::string command =
        "{ printf 'P5 16 16 255\\n'; head -c 256 /dev/zero | tr '\\0' x; } | cjpeg -outfile " + path;
    Require(std::system(command.c_str()) == 0, command + " failed");
}

// The simulator's own test card, 1920 x 1080.
void MakeLargePicture(const std::string& path) {
    unsetenv("XENC_PICTURE");
    Capture capture;
    Require(capture.Initialize() && kt_md_capture(path.c_str()) != 0, "no test card");
}

} // namespace

} // namespace qz::benchmarks

// Stands before the library's, for the engine too, and takes the time of what is not the engine's.
extern "C" int kt_md_capture(const char* path) {
    static const auto real = reinterpret_cast<int (*)(const char*)>(dlsym(RTLD_NEXT, "kt_md_capture"));
    const double cpu = qz::benchmarks::CpuTime();
    const double wall = qz::benchmarks::WallTime();
    const int result = real(path);
    xenc_sim_flush(); // its log lines, which it delivers on a thread of its own
    qz::benchmarks::insideLibrary = {qz::benchmarks::WallTime() - wall, qz::benchmarks::CpuTime() - cpu};
    return result;
}

int main(int argc, char** argv) {
    using namespace qz::benchmarks;
    Require(FileLogger::instance()->Initialize(LOG_DIRECTORY, "request",
                                               argc > 1 ? std::atoi(argv[1]) : PRODUCTION_LEVEL, "%Y%m%d", false),
            "no log");
    const std::string small = qz::common::TMP_DIR + "/small.jpg";
    const std::string large = qz::common::TMP_DIR + "/large.jpg";
    MakeSmallPicture(small);
    MakeLargePicture(large);

    Report report("A request");
    Run(report, small, 16, 16, 1.08);
    Run(report, large, 1920, 1080, 1.03);
    delete FileLogger::instance();
    return report.Status();
}
