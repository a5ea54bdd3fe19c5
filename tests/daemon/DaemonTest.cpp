// The real daemon with the simulator: start, refusals, commands, signals, faults, ends.
#include <algorithm>
#include <cstring>

#include "tests/support/Support.h"

using namespace support;
using std::chrono::steady_clock;

namespace {

const std::string LOCK = "/var/lock/capture.lock";
const std::string PID = "/var/run/capture.pid";
const std::string TERMINATED = "INF TORMEL PLINTA CAPTURE [Terminated]";

// Fails with the first expected line that does not follow the ones before it.
void ExpectInOrder(LogReader& log, const Texts& expected) {
    const Texts messages = log.Messages();
    auto at = messages.begin();
    for (const std::string& line : expected) {
        at = std::find(at, messages.end(), line);
        ASSERT_NE(at, messages.end()) << "missing, or out of order: " << line;
    }
}

void ExpectOrderlyEnd(Daemon& daemon, int milliseconds = 10000) {
    EXPECT_EQ(daemon.Status(milliseconds), 0);
    ExpectInOrder(daemon, {"INF Initialize succeed", TERMINATED});
    EXPECT_FALSE(Exists(LOCK) || Exists(PID));
}

TEST(Daemon, APictureGoesInAndALiveViewComesOut) {
    ReadyDaemon daemon("--debug", "--ignore-signal=CHLD QZ_SCREEN_MODE=0"); // a parent's setting
    EXPECT_EQ(ReadFile(PID), std::to_string(daemon.Pid()));
    EXPECT_TRUE(Exists(LOCK));
    const std::string resized = "INF Resize complete. jpegSize: ";
    const std::array<std::string, 3> rows[] = {
        {"capture_run", resized + "1920 X 1080, rate: 50, ratio: 0.5, vertical: 0", "GIF 960 x 540"},
        {"screenMode1", "INF ScreenModeChange success: 1", "GIF 960 x 540"},
        {"capture_run", resized + "1080 X 1920, rate: 40, ratio: 0.5, vertical: 1", "GIF 405 x 720"}};
    for (const auto& [command, line, size] : rows) {
        Appliance::Command(command);
        EXPECT_TRUE(daemon.Logs(line)) << line;
        EXPECT_EQ(GifSize(Appliance::Tmp("liveview.gif")), size);
    }
    Appliance::Command("capture_end");
    ExpectOrderlyEnd(daemon);
    EXPECT_EQ(daemon.Output(), "");
    Shell("test $(stat -c %a /var/log/tormel/agent) = 755");
    Texts expected = {"INF " + std::string(54, '*'), "INF *      TORMEL PLINTA CAPTURE v1.2.3.07     *"};
    for (const int number : {15, 2, 11, 6, 4, 8, 3, 9, 20, 1, 10, 14})
        expected.push_back("INF  * handler registered. SetupSignal (" + std::string(strsignal(number)) + ":" +
                           std::to_string(number) + ")");
    for (const char* line :
         {"INF  * SetupSignal (SIGPIPE) : IGNORE SIGNAL.", "INF  * TORMEL PLINTA CAPTURE [Ready]",
          "DBG load from system environment configuration.", " - QZ_SCREEN_MODE = 0", "INF kt_init success",
          "INF kt_md_init success", "INF kt_md_start success", "INF Initialize succeed", "INF kt_md_capture success",
          "INF kt_md_setScreenRotate success", "INF kt_md_capture success", "INF end the thread",
          "INF kt_md_stop success", "INF kt_md_uninit success", "INF kt_uninit success"})
        expected.emplace_back(line);
    ExpectInOrder(daemon, expected);
    EXPECT_NE(ReadFile(LogFile("capture")).find("][main] TORMEL PLINTA CAPTURE [Terminated]"), std::string::npos);
}

TEST(Daemon, OptionsAndRefusals) {
    const std::string failure = "failure to process initialize\n";
    const std::string usage = "\n -- debug  : run debug mode\n -- stop   : stop process\n -- help   : print usage\n\n";
    for (const char* arguments : {"--help", "'-?' x", "'-?'", "--wrong", "-s", "-c", "--stop", "-s now"}) {
        SCOPED_TRACE(arguments);
        Daemon daemon(arguments);
        const bool stops = arguments == std::string("--stop") || arguments == std::string("-s now");
        EXPECT_EQ(daemon.Status(), stops ? 255 : 0);
        const std::string output = daemon.Output(); // a complaint comes first
        EXPECT_TRUE(stops ? output == failure : output.find("usage) /") < output.find("/capture" + usage)) << output;
        EXPECT_FALSE(Exists("/var/log/tormel") || Exists(LOCK));
    }
    WriteFile("/var/log/tormel", "in the way");
    Daemon unlogged;
    EXPECT_EQ(unlogged.Status(), 255);
    EXPECT_EQ(unlogged.Output(), " * initialize log failed. not write logs.\n" + failure);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // whose runtimes want descriptors too
TEST(Daemon, StartsOrSaysWhyNotWithAnyNumberOfDescriptors) {
    bool withoutPipe = false;
    for (int descriptors = 6; descriptors < 12; ++descriptors) {
        SCOPED_TRACE(descriptors);
        Appliance appliance;
        Daemon daemon("--debug", "prlimit --nofile=" + std::to_string(descriptors));
        EXPECT_TRUE(Eventually([&] { return daemon.Status(0) != -1 || daemon.Mentions("Initialize succeed"); }));
        kill(daemon.Pid(), SIGTERM);
        EXPECT_TRUE(daemon.Status(5000) == 255 || daemon.Status() == 0) << daemon.Status();
        EXPECT_FALSE(Exists(LOCK) || Exists(PID));
        if (daemon.Mentions("no pipe for the signals")) {
            EXPECT_FALSE(daemon.Mentions("registered")); // no handler without the pipe
            withoutPipe = true;
        }
    }
    EXPECT_TRUE(withoutPipe); // for some number it is the pipe that is missing
}
#endif

TEST(Daemon, OneInstanceAndTheStopRequest) {
    ReadyDaemon first("-c anything");
    EXPECT_FALSE(first.Mentions("DBG "));
    const Texts log = first.Messages();
    Daemon second;
    EXPECT_EQ(second.Status(), 255);
    EXPECT_EQ(second.Output(), " * already running process:capture\nfailure to process initialize\n");
    EXPECT_EQ(first.Messages(), log);
    EXPECT_EQ(ReadFile(PID), std::to_string(first.Pid()));
    Daemon stop("-s now");
    EXPECT_EQ(stop.Status(), 255);
    ExpectOrderlyEnd(first, 0); // the request has waited for it
}

TEST(Daemon, ARunThatDoesNotStartSaysWhy) {
    Appliance appliance;
    Shell("cp $(command -v sleep) /opt/kt_control; /opt/kt_control 30 & "
          "until pidof kt_control >/dev/null; do sleep 0.01; done");
    Daemon beside;
    EXPECT_EQ(beside.Status(), 255);
    Shell("kill $(pidof kt_control)");
    ExpectInOrder(beside, {"ERR kt_control is running.", TERMINATED, "ERR Destory failed : 0/0/0"});
    EXPECT_FALSE(beside.Mentions("kt_init"));

    WriteFile("/opt/control", "fail kt_md_init\n");
    Daemon failed("--debug", "XENC_CONTROL=/opt/control");
    EXPECT_EQ(failed.Status(), 255);
    for (const char* name : {"md_capture.jpg", "liveview.gif"})
        EXPECT_EQ(ReadFile(Appliance::Tmp(name)), ReadFile(Appliance::Tmp("liveview_failed.jpg"))) << name;
    ExpectInOrder(failed, {"ERR  * read system configuration fail.", "INF kt_init success", "ERR kt_md_init fail",
                           "ERR Initialize failed", TERMINATED, "ERR kt_md_stop failed", "INF kt_uninit success"});
}

TEST(Daemon, SignalsEndItOrDoNotAndFaultsKeepTheirStatusAlsoWithoutStandardInput) {
    for (const int ending : {SIGTERM, SIGQUIT, SIGUSR1, SIGSEGV, SIGABRT, SIGILL, SIGFPE}) {
        const std::string name = strsignal(ending);
        SCOPED_TRACE(name);
        // The parent's: a blocked signal, and closed descriptors, where nothing of the daemon's own may land.
        ReadyDaemon daemon("--debug", "--block-signal=TERM sh -c 'exec \"$0\" \"$@\" <&- >&- 2>&-'");
        for (const char* standard : {"0", "1", "2"})
            EXPECT_EQ(std::filesystem::read_symlink("/proc/" + std::to_string(daemon.Pid()) + "/fd/" + standard),
                      "/dev/null");
        for (const int harmless : {SIGINT, SIGHUP, SIGALRM, SIGTSTP, SIGPIPE})
            kill(daemon.Pid(), harmless);
        EXPECT_TRUE(daemon.Logs("INF  Receives signal(Stopped:20). "));
        EXPECT_TRUE(daemon.Logs("DBG Unused unix signal:1, -1"));
        EXPECT_EQ(daemon.Status(50), -1);
        const auto start = steady_clock::now();
        kill(daemon.Pid(), ending);
        EXPECT_TRUE(daemon.Logs("INF  Receives signal(" + name + ":" + std::to_string(ending) + "). "));
        if (ending == SIGTERM || ending == SIGQUIT || ending == SIGUSR1) {
            ExpectOrderlyEnd(daemon);
            continue;
        }
        kill(daemon.Pid(), SIGABRT); // a second fault does not take the first one's place
        EXPECT_TRUE(daemon.Logs("INF Abnormal process exit."));
        kill(daemon.Pid(), SIGTERM); // an orderly end on the way does not hide the fault
        EXPECT_EQ(daemon.Status(), Daemon::BY_SIGNAL + ending);
        EXPECT_TRUE(Since(start) >= 1990 && Since(start) < 2900) << Since(start); // one pause, and nothing else
        EXPECT_EQ(daemon.Count("INF Abnormal process exit."), 1);
    }
}

TEST(Daemon, AFaultInTheLibraryIsToldAndWakesWhatIsStopped) {
    WriteFile("/opt/shell", "#!/bin/bash\necho \"$@\" >>/opt/asked\nexec /bin/bash \"$@\"\n");
    chmod("/opt/shell", 0755);
    const FileMount shell("/opt/shell", "/bin/sh");
    for (const std::string function : {"kt_md_capture", "exit"}) { // the latter strikes after the log's end
        SCOPED_TRACE(function);
        WriteFile("/opt/control", "fault " + function + "\n");
        ReadyDaemon daemon("--debug", "XENC_CONTROL=/opt/control");
        Appliance::Command(function == "exit" ? "capture_end" : "capture_run");
        EXPECT_EQ(daemon.Status(), Daemon::BY_SIGNAL + SIGSEGV);
        ExpectInOrder(daemon, {"INF Initialize succeed", "INF  Receives signal(Segmentation fault:11). ",
                               "INF Abnormal process exit."});
        EXPECT_EQ(daemon.Count(TERMINATED), function == "exit");
        const std::string asked = "-c kill -CONT " + std::to_string(daemon.Pid()) + "\n";
        EXPECT_NE(ReadFile("/opt/asked").find(asked), std::string::npos);
    }
}

TEST(Daemon, EndsWithItsParent) {
    const int parent = fork();
    if (parent == 0) {
        new ReadyDaemon; // left running
        _exit(HasFailure());
    }
    int status = 0;
    waitpid(parent, &status, 0);
    EXPECT_EQ(status, 0);
    LogReader log("capture");
    EXPECT_TRUE(log.Logs(TERMINATED));
    ExpectInOrder(log, {"INF  Receives signal(Terminated:15). ", TERMINATED});
}

TEST(Daemon, EndsWhenNoSnapshotSucceedsForElevenSeconds) {
    ReadyDaemon daemon;
    const auto start = steady_clock::now();
    int silent = open(Appliance::Tmp("capture.fifo").c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    EXPECT_TRUE(Eventually([&] { return daemon.Count("WRN FIFO select timeout") == 1; }, 12000));
    close(silent); // now the pipe is at its end of file, so every pass checks the clock
    ExpectOrderlyEnd(daemon, 15000);
    EXPECT_GE(Since(start), 10500);
    ExpectInOrder(daemon, {"ERR no requests for 10sec", TERMINATED});
}

TEST(Daemon, ALibraryCallThatDoesNotReturnHoldsUpTheEndForFourSeconds) {
    // The call, the command that leads to it, the wait that is given up.
    const std::array<std::string, 3> rows[] = {{"kt_md_capture", "capture_run", "the command pipe task"},
                                               {"kt_md_stop", "", "kt_md_stop"},
                                               {"kt_uninit", "", "kt_uninit"}};
    for (const auto& [function, command, wait] : rows) {
        SCOPED_TRACE(function + " " + command);
        WriteFile("/opt/control", "hang " + function + "\n");
        ReadyDaemon daemon("--debug", "XENC_CONTROL=/opt/control");
        if (!command.empty())
            Appliance::Command(command); // it has been read, so the call is being made
        const auto start = steady_clock::now();
        kill(daemon.Pid(), SIGTERM);
        ExpectOrderlyEnd(daemon);
        EXPECT_TRUE(Since(start) >= 3900 && Since(start) < 4900) << Since(start);
        ExpectInOrder(daemon, {"ERR gave up waiting for " + wait, TERMINATED});
    }
    // A library that did not close may still call back: the engine is left to it, and closed only once.
    WriteFile("/opt/control", "fail kt_uninit\n");
    ReadyDaemon daemon("--debug", "XENC_CONTROL=/opt/control");
    kill(daemon.Pid(), SIGTERM);
    ExpectOrderlyEnd(daemon);
    EXPECT_EQ(daemon.Count("ERR kt_uninit failed"), 1);
    EXPECT_EQ(daemon.Count("INF kt_uninit success"), 0);
}

// A run that failed keeps its status; at the exit there is a little more time, and no log any more.
TEST(Daemon, AHangAfterAFailedRunOrAtTheExitHoldsUpTheEndLikewise) {
    const std::tuple<const char*, int, int> rows[] = {{"fail kt_md_start\nhang kt_uninit\n", 255, 3900},
                                                      {"hang exit\n", 0, 4600}};
    for (const auto& [control, status, least] : rows) {
        SCOPED_TRACE(control);
        Appliance appliance;
        WriteFile("/opt/control", control);
        Daemon daemon("--debug", "XENC_CONTROL=/opt/control");
        EXPECT_TRUE(Eventually([&] { return daemon.Mentions("kt_md_start"); }));
        const auto start = steady_clock::now();
        kill(daemon.Pid(), SIGTERM);
        EXPECT_EQ(daemon.Status(), status);
        EXPECT_TRUE(Since(start) >= least && Since(start) < least + 1000) << Since(start);
        EXPECT_EQ(daemon.Count(TERMINATED), 1);
        EXPECT_EQ(daemon.Count("ERR gave up waiting for kt_uninit"), status == 255);
        EXPECT_FALSE(Exists(LOCK) || Exists(PID));
    }
}

// At every moment of a short life: the start, a snapshot, the rotation's pause, the teardown.
TEST(Daemon, SignalsAndCommandsInAFlood) {
    for (const int moment : {0, 5, 20, 60, 150, 400}) {
        SCOPED_TRACE(moment);
        Appliance appliance;
        Daemon daemon;
        ASSERT_TRUE(daemon.Logs("INF  * TORMEL PLINTA CAPTURE [Ready]"));
        std::atomic<bool> done{false};
        std::thread signals([&] {
            while (!done) {
                for (const int harmless : {SIGINT, SIGHUP, SIGALRM, SIGTSTP})
                    kill(daemon.Pid(), harmless);
            }
        });
        EXPECT_TRUE(daemon.Ready());
        const int fd = open(Appliance::Tmp("capture.fifo").c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        for (int i = 0; i < 50; ++i)
            (void)!write(fd, i % 25 == 20 ? "screenMode1" : "capture_run", 11);
        std::this_thread::sleep_for(std::chrono::milliseconds(moment));
        kill(daemon.Pid(), SIGTERM);
        ExpectOrderlyEnd(daemon);
        done = true;
        signals.join();
        close(fd);
        EXPECT_EQ(daemon.Count("ERR FIFO select failed"), 0);
    }
}

} // namespace
