// The real daemon with the simulator: start, refusals, commands, signals, faults, ends.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/Support.h"

using support::Appliance;
using support::Daemon;
using support::Eventually;
using support::Exists;
using support::GifSize;
using support::MessagesOf;
using support::ReadFile;
using support::WriteFile;

namespace {

using Texts = std::vector<std::string>;

const std::string LOCK = "/var/lock/capture.lock";
const std::string PID = "/var/run/capture.pid";

// Fails with the first expected line that does not follow the ones before it.
void ExpectInOrder(const Texts& messages, const Texts& expected) {
    size_t at = 0;
    for (const std::string& line : expected) {
        while (at < messages.size() && messages[at] != line)
            ++at;
        ASSERT_LT(at, messages.size()) << "missing, or out of order: " << line;
        ++at;
    }
}

TEST(Daemon, APictureGoesInAndALiveViewComesOut) {
    Appliance appliance;
    {
        Daemon daemon({"--debug"}, {"QZ_SCREEN_MODE=0"});
        ASSERT_TRUE(daemon.Ready());
        EXPECT_EQ(ReadFile(PID), std::to_string(daemon.Pid()));
        EXPECT_TRUE(Exists(LOCK));
        Appliance::Command("capture_run");
        EXPECT_TRUE(
            daemon.Logs("INF Resize complete. jpegSize: 1920 X 1080, rate: 50, ratio: 0.5, vertical: 0"));
        EXPECT_EQ(GifSize(Appliance::Tmp("liveview.gif")), "960 x 540");
        Appliance::Command("screenMode1");
        EXPECT_TRUE(daemon.Logs("INF ScreenModeChange success: 1"));
        Appliance::Command("capture_run");
        EXPECT_TRUE(
            daemon.Logs("INF Resize complete. jpegSize: 1080 X 1920, rate: 40, ratio: 0.5, vertical: 1"));
        EXPECT_EQ(GifSize(Appliance::Tmp("liveview.gif")), "405 x 720");
        Appliance::Command("capture_end");
        EXPECT_EQ(daemon.Status(), 0);
        EXPECT_EQ(daemon.Output(), "");
    }
    EXPECT_FALSE(Exists(LOCK));
    EXPECT_FALSE(Exists(PID));
    Texts expected = {"INF " + std::string(54, '*'), "INF *      TORMEL PLINTA CAPTURE v1.2.3.07     *",
                      "INF " + std::string(54, '*')};
    for (const char* name : {"Terminated:15", "Interrupt:2", "Segmentation fault:11", "Aborted:6",
                             "Illegal instruction:4", "Floating point exception:8", "Quit:3", "Killed:9",
                             "Stopped:20", "Hangup:1", "User defined signal 1:10", "Alarm clock:14"})
        expected.push_back("INF  * handler registered. SetupSignal (" + std::string(name) + ")");
    for (const char* line :
         {"INF  * SetupSignal (SIGPIPE) : IGNORE SIGNAL.", "INF  * TORMEL PLINTA CAPTURE [Ready]",
          "DBG load from system environment configuration.", "INF kt_init success", "INF kt_md_init success",
          "INF kt_md_start success", "INF Initialize succeed", "INF kt_md_capture success",
          "INF kt_md_setScreenRotate success", "INF end the thread", "INF kt_md_stop success",
          "INF kt_md_uninit success", "INF kt_uninit success", "INF TORMEL PLINTA CAPTURE [Terminated]"})
        expected.emplace_back(line);
    ExpectInOrder(MessagesOf(Daemon::LogText()), expected);
    EXPECT_NE(Daemon::LogText().find("][main] TORMEL PLINTA CAPTURE [Terminated]"), std::string::npos);
}

TEST(Daemon, OptionsAndRefusals) {
    Appliance appliance;
    std::filesystem::remove_all("/var/log/tormel");
    const std::string failure = "failure to process initialize\n";
    const std::string usage =
        " -- debug  : run debug mode\n -- stop   : stop process\n -- help   : print usage\n\n";
    const std::pair<Texts, int> rows[] = {{{"--help"}, 0},   {{"-?", "x"}, 0},    {{"-?"}, 0},
                                          {{"--wrong"}, 0},  {{"-s"}, 0},         {{"-c"}, 0},
                                          {{"--stop"}, 255}, {{"-s", "now"}, 255}};
    for (const auto& [arguments, status] : rows) {
        SCOPED_TRACE(arguments[0]);
        Daemon daemon(arguments);
        EXPECT_EQ(daemon.Status(), status);
        if (status == 0) {
            EXPECT_NE(daemon.Output().find("usage) "), std::string::npos);
            EXPECT_NE(daemon.Output().find("\n" + usage), std::string::npos) << daemon.Output();
            EXPECT_EQ(daemon.Output().find(failure), std::string::npos);
        } else {
            EXPECT_EQ(daemon.Output(), failure);
        }
        EXPECT_FALSE(Exists("/var/log/tormel"));
        EXPECT_FALSE(Exists(LOCK));
    }
    WriteFile("/var/log/tormel", "in the way");
    Daemon unlogged;
    EXPECT_EQ(unlogged.Status(), 255);
    EXPECT_EQ(unlogged.Output(), " * initialize log failed. not write logs.\n" + failure);
}

TEST(Daemon, OneInstanceAndTheStopRequest) {
    Appliance appliance;
    Daemon first({"-c", "anything"});
    ASSERT_TRUE(first.Ready());
    EXPECT_EQ(Daemon::LogText().find("|DBG|"), std::string::npos);
    const std::string log = Daemon::LogText();
    Daemon second;
    EXPECT_EQ(second.Status(), 255);
    EXPECT_EQ(second.Output(), " * already running process:capture\nfailure to process initialize\n");
    EXPECT_EQ(Daemon::LogText(), log);
    EXPECT_EQ(ReadFile(PID), std::to_string(first.Pid()));
    Daemon stop({"-s", "now"});
    EXPECT_EQ(first.Status(), 0);
    EXPECT_EQ(stop.Status(), 255);
    EXPECT_FALSE(Exists(PID));
}

TEST(Daemon, RefusesToRunBesideTheControlProcess) {
    Appliance appliance;
    support::Shell("cp $(command -v sleep) /opt/kt_control; /opt/kt_control 30 & "
                   "until pidof kt_control >/dev/null; do sleep 0.01; done");
    Daemon daemon;
    EXPECT_EQ(daemon.Status(), 255);
    support::Shell("kill $(pidof kt_control)");
    ExpectInOrder(MessagesOf(Daemon::LogText()),
                  {"ERR kt_control is running.", "INF TORMEL PLINTA CAPTURE [Terminated]",
                   "ERR Destory failed : 0/0/0"});
    EXPECT_EQ(Daemon::LogText().find("kt_init"), std::string::npos);
}

TEST(Daemon, AFailedStartPublishesTheFailurePicture) {
    Appliance appliance;
    WriteFile("/opt/control", "fail kt_md_init\n");
    Daemon daemon({"--debug"}, {"XENC_CONTROL=/opt/control"});
    EXPECT_EQ(daemon.Status(), 255);
    const std::string failure = ReadFile(Appliance::Tmp("liveview_failed.jpg"));
    EXPECT_EQ(ReadFile(Appliance::Tmp("md_capture.jpg")), failure);
    EXPECT_EQ(ReadFile(Appliance::Tmp("liveview.gif")), failure);
    ExpectInOrder(MessagesOf(Daemon::LogText()),
                  {"ERR  * read system configuration fail.", "INF kt_init success", "ERR kt_md_init fail",
                   "ERR Initialize failed", "INF TORMEL PLINTA CAPTURE [Terminated]", "ERR kt_md_stop failed",
                   "ERR kt_md_uninit failed", "INF kt_uninit success"});
}

TEST(Daemon, SignalsThatEndAndSignalsThatDoNot) {
    for (const int ending : {SIGTERM, SIGQUIT, SIGUSR1}) {
        SCOPED_TRACE(ending);
        Appliance appliance;
        std::filesystem::remove_all("/var/log/tormel/agent");
        Daemon daemon;
        ASSERT_TRUE(daemon.Ready());
        for (const int harmless : {SIGINT, SIGHUP, SIGALRM, SIGTSTP, SIGPIPE})
            kill(daemon.Pid(), harmless);
        EXPECT_TRUE(daemon.Logs("INF  Receives signal(Stopped:20). "));
        EXPECT_TRUE(daemon.Logs("DBG Unused unix signal:1, -1"));
        EXPECT_EQ(daemon.Status(50), -1);
        kill(daemon.Pid(), ending);
        EXPECT_EQ(daemon.Status(), 0);
    }
}

TEST(Daemon, FaultsEndTheProcessByTheirOwnSignalAfterOnePause) {
    const std::pair<int, const char*> rows[] = {
        {SIGSEGV, "INF  Receives signal(Segmentation fault:11). "},
        {SIGABRT, "INF  Receives signal(Aborted:6). "},
        {SIGILL, "INF  Receives signal(Illegal instruction:4). "},
        {SIGFPE, "INF  Receives signal(Floating point exception:8). "}};
    for (const auto& [fault, line] : rows) {
        SCOPED_TRACE(fault);
        Appliance appliance;
        std::filesystem::remove_all("/var/log/tormel/agent");
        Daemon daemon;
        ASSERT_TRUE(daemon.Ready());
        const auto start = std::chrono::steady_clock::now();
        kill(daemon.Pid(), fault);
        EXPECT_TRUE(daemon.Logs(line));
        EXPECT_TRUE(daemon.Logs("INF Abnormal process exit."));
        kill(daemon.Pid(), SIGTERM); // an orderly end on the way does not hide the fault
        EXPECT_EQ(daemon.Status(), 128 + fault);
        const auto pause = std::chrono::steady_clock::now() - start;
        EXPECT_GE(pause, std::chrono::milliseconds(1990));
        EXPECT_LT(pause, std::chrono::milliseconds(3900)); // one pause, not two
    }
}

TEST(Daemon, EndsWithItsParent) {
    Appliance appliance;
    const int parent = fork();
    if (parent == 0) {
        Daemon* daemon = new Daemon; // left running
        _exit(daemon->Ready() ? 0 : 1);
    }
    int status = 0;
    waitpid(parent, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(Eventually([] { return Daemon::LogText().find("[Terminated]") != std::string::npos; }));
    EXPECT_NE(Daemon::LogText().find("Receives signal(Terminated:15). "), std::string::npos);
}

TEST(Daemon, ClosedStandardDescriptorsHoldNothingOfItsOwn) {
    Appliance appliance;
    for (int fd = 0; fd < 3; ++fd)
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    Daemon daemon; // standard output and error are the test's own again; input stays closed
    ASSERT_TRUE(daemon.Ready());
    const std::string input = "/proc/" + std::to_string(daemon.Pid()) + "/fd/0";
    EXPECT_EQ(std::filesystem::read_symlink(input), "/dev/null");
    kill(daemon.Pid(), SIGTERM);
    EXPECT_EQ(daemon.Status(), 0);
}

TEST(Daemon, EndsWhenNoSnapshotSucceedsForElevenSeconds) {
    Appliance appliance;
    Daemon daemon;
    ASSERT_TRUE(daemon.Ready());
    const auto start = std::chrono::steady_clock::now();
    Appliance::Command(
        "garbage"); // from here on the pipe is at its end of file, so every pass checks the clock
    EXPECT_EQ(daemon.Status(15000), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(10500));
    EXPECT_TRUE(daemon.Logs("ERR no requests for 10sec"));
}

TEST(Daemon, ALibraryCallThatDoesNotReturnHoldsUpTheEndForFourSeconds) {
    Appliance appliance;
    WriteFile("/opt/control", "capture slow 30000\n");
    Daemon daemon({"--debug"}, {"XENC_CONTROL=/opt/control"});
    ASSERT_TRUE(daemon.Ready());
    Appliance::Command("capture_run");
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const auto start = std::chrono::steady_clock::now();
    kill(daemon.Pid(), SIGTERM);
    EXPECT_EQ(daemon.Status(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5000));
    EXPECT_TRUE(daemon.Logs("ERR command pipe task still busy"));
    EXPECT_TRUE(daemon.Logs("INF TORMEL PLINTA CAPTURE [Terminated]"));
    EXPECT_FALSE(Exists(LOCK));
    EXPECT_FALSE(Exists(PID));
}

// At every moment of a short life: the start, a snapshot, the rotation's pause, the teardown.
TEST(Daemon, SignalsAndCommandsInAFlood) {
    for (const int moment : {0, 5, 20, 60, 150, 400}) {
        SCOPED_TRACE(moment);
        Appliance appliance;
        std::filesystem::remove_all("/var/log/tormel/agent");
        Daemon daemon;
        ASSERT_TRUE(daemon.Logs("INF  * TORMEL PLINTA CAPTURE [Ready]"));
        std::atomic<bool> done{false};
        std::thread signals([&] {
            while (!done) {
                for (const int harmless : {SIGINT, SIGHUP, SIGALRM, SIGTSTP})
                    kill(daemon.Pid(), harmless);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        });
        ASSERT_TRUE(daemon.Ready());
        const int fd = open(Appliance::Tmp("capture.fifo").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        for (int i = 0; i < 50; ++i)
            (void)!write(fd, i % 25 == 20 ? "screenMode1" : "capture_run", 11);
        std::this_thread::sleep_for(std::chrono::milliseconds(moment));
        kill(daemon.Pid(), SIGTERM);
        EXPECT_EQ(daemon.Status(), 0);
        done = true;
        signals.join();
        close(fd);
        EXPECT_TRUE(daemon.Logs("INF TORMEL PLINTA CAPTURE [Terminated]"));
        EXPECT_EQ(Daemon::LogText().find("select failed"), std::string::npos);
    }
}

} // namespace
