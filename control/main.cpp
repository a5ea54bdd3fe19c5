// capturectl: asks the capture daemon, and says what came of it.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <ctime>
#include <iostream>
#include <thread>

#include <CLI/CLI.hpp>

#include "control/Commands.h"
#include "control/Doctor.h"

using namespace qz::control;

namespace {

constexpr const char* STATUSES = "Exit status: 0 done; 1 no picture, or the rotation failed; 64 wrong use; "
                                 "69 the daemon is not running or ended;\n"
                                 "70 something is amiss (doctor); 73 a file could not be written; 75 timed "
                                 "out; 76 the pipe does not take the\n"
                                 "command; 77 no permission; 78 the installation is broken.";

std::atomic<bool> interrupted{false};

// Prints the report and gives its status.
int Print(const Report& report, bool json) {
    std::cout << (json ? report.ForScript() : report.ForPerson()) << std::flush;
    return report.status;
}

int PrintFailure(const Failure& failure, bool json) {
    if (json) {
        Report report;
        report.Text("error", failure.kind);
        report.Text("reason", failure.reason);
        std::cout << report.ForScript() << std::flush;
    }
    std::cerr << "capturectl: " << failure.reason << std::endl;
    return failure.status;
}

// Carries the command out until a signal ends it, at even intervals.
template <typename Command>
int Repeat(std::chrono::milliseconds interval, bool json, Command command) {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = true; };
    for (const int number : {SIGINT, SIGTERM})
        sigaction(number, &action, nullptr);
    for (auto next = std::chrono::steady_clock::now(); !interrupted; std::this_thread::sleep_until(next)) {
        next += interval;
        try {
            Print(command(), json);
        } catch (const Failure& failure) {
            PrintFailure(failure, json);
        }
        // In pieces: a sleep would go on after the signal.
        while (!interrupted && std::chrono::steady_clock::now() + std::chrono::milliseconds(50) < next)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (interrupted)
            break;
    }
    return SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Asks the capture daemon for pictures and tells what came of it.", "capturectl"};
    app.footer(STATUSES);
    app.set_version_flag("--version", std::string("capturectl ") + QZ_VERSION);
    app.require_subcommand(1);
    bool json = false;
    double seconds = 10;
    const auto timeout = [&seconds] { return std::chrono::milliseconds(static_cast<long>(seconds * 1000)); };
    int status = SUCCESS;

    const auto add = [&](const std::string& name, const std::string& text, bool waits) {
        CLI::App* command = app.add_subcommand(name, text);
        command->footer(STATUSES);
        if (waits)
            command->add_option("--timeout", seconds, "seconds to wait at most")
                ->capture_default_str()
                ->check(CLI::Range(0.0, 3600.0));
        return command;
    };
    const auto answers = [&](CLI::App* command, auto ask) {
        command->add_flag("--json", json, "the answer as one JSON object");
        command->callback([&status, &json, ask] { status = Print(ask(), json); });
    };

    std::string output;
    std::string liveView;
    CLI::App* snapshot = add("snapshot", "take a picture now, and wait until it is published", true);
    snapshot->add_option("-o,--output", output, "copy the snapshot there");
    snapshot->add_option("--live-view", liveView, "copy the live view there");
    double interval = 0;
    snapshot->add_option("--every", interval, "again and again, after so many seconds (5s or 5), until interrupted")
        ->transform([](std::string text) {
            if (!text.empty() && text.back() == 's')
                text.pop_back();
            return text;
        })
        ->check(CLI::Range(0.1, 3600.0));
    snapshot->add_flag("--json", json, "the answer as one JSON object");
    snapshot->callback([&] {
        const auto take = [&] { return TakeSnapshot(timeout(), output, liveView); };
        status = interval > 0 ? Repeat(std::chrono::milliseconds(static_cast<long>(interval * 1000)), json, take)
                              : Print(take(), json);
    });

    int degrees = 0;
    CLI::App* rotate = add("rotate", "re-open the encoder turned", true);
    rotate->add_option("degrees", degrees, "0, 90, 180 or 270")->required()->check(CLI::IsMember({0, 90, 180, 270}));
    answers(rotate, [&] { return Rotate(timeout(), degrees); });
    answers(add("end", "end the daemon by its command, and wait until it has gone", true),
            [&] { return End(timeout()); });
    answers(add("stop", "end the daemon by SIGTERM, and wait until it has gone", true),
            [&] { return Stop(timeout()); });
    answers(add("status", "the daemon, its pictures, its last end", false), ShowStatus);
    answers(add("wait-ready", "wait until the daemon serves commands", true), [&] { return WaitReady(timeout()); });
    answers(add("doctor", "check the installation, and say what mends it", false), Examine);

    bool follow = false;
    std::string level = "DBG";
    std::string text;
    CLI::App* log = add("log", "print the daemon's log, oldest first", false);
    log->add_flag("-f,--follow", follow, "and go on with what comes");
    log->add_option("--level", level, "ERR, WRN, INF or DBG: this and graver ones")
        ->check(CLI::IsMember({"ERR", "WRN", "INF", "DBG"}));
    log->add_option("--grep", text, "only messages that hold this text");
    log->callback([&] { PrintLog(follow, level, text); });

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? SUCCESS : WRONG_USE;
    } catch (const Failure& failure) {
        return PrintFailure(failure, json);
    }
    return status;
}
