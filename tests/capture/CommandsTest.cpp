// The command pipe: what each text does, and what becomes of a pipe that is none.
#include <sys/resource.h>
#include <sys/syscall.h>

#include <ctime>

#include "tests/capture/RunningSession.h"

using namespace support;

namespace {

TEST(Commands, EachTextDoesWhatItSays) {
    RunningSession session;
    const std::string done = "INF kt_md_capture success";
    const std::string failure = Appliance::Tmp("liveview_failed.jpg");
    const std::string copied = "INF copy finished: `" + failure + "` to `";
    const std::tuple<const char*, const char*, std::string> rows[] = {
        {"", "screenMode4", "ERR Invalid screenMode number: 4"},
        {"", "screenMode-", "ERR Invalid screenMode: -"},
        {"", "screenMode", "ERR Invalid screenMode: "},
        {"", "screenModex", "ERR Invalid screenMode: x"},
        {"", "screenMode1", "INF ScreenModeChange success: 1"},
        {"", "screenMode0", "INF ScreenModeChange success: 0"},
        {"", "capture_run\n", done},
        {"fail kt_md_capture", "capture_run", copied + Appliance::Tmp("liveview.gif") + "`"}};
    for (const auto& [control, command, line] : rows) {
        xenc_sim_control(control);
        EXPECT_TRUE(session.Command(command, line)) << command;
    }
    EXPECT_EQ(session.log.Count("ERR kt_md_capture failed"), 1);
    for (const char* name : {"md_capture.jpg", "liveview.gif"})
        EXPECT_EQ(ReadFile(Appliance::Tmp(name)), ReadFile(failure));
    // Garbage, halves and zero bytes do nothing; two commands that were written in one go both count.
    for (const std::string& text : {std::string("garbage"), std::string("\0capture_run", 12), std::string("capture_en"),
                                    std::string("capture_runcapture_run")})
        Appliance::Command(text);
    EXPECT_TRUE(Eventually([&] { return session.log.Count(done) == 3; }));
    EXPECT_FALSE(session.Ended(100));
    xenc_sim_control("fail kt_md_start");
    EXPECT_TRUE(session.Command("screenMode2", "INF ScreenModeChange failed: 2"));
    EXPECT_TRUE(session.Ended(5000));
    EXPECT_EQ(session.log.Count(done), 3);
}

TEST(Commands, WritersThatComeAndGoCauseNoBusyLoop) {
    RunningSession session;
    for (int i = 0; i < 20; ++i)
        Appliance::Command("");
    const clock_t before = clock();
    EXPECT_FALSE(session.Ended(500));
    // The pipe is at its end of file and stays readable, but the process hardly runs.
    EXPECT_LT(clock() - before, CLOCKS_PER_SEC / 4);
}

TEST(Commands, WithoutAPipeTheSessionEndsInOrder) {
    const std::string path = Appliance::Tmp("capture.fifo");
    const auto endsInOrder = [&](Bench& bench, bool invalid) {
        EXPECT_EQ(bench.capture.Run(), 1);
        EXPECT_EQ(bench.log.Count("ERR FIFO is invalid"), invalid);
        EXPECT_EQ(Exists(path), !invalid);
    };
    for (const bool regularFile : {false, true}) {
        Bench bench;
        unlink(path.c_str());
        if (regularFile)
            WriteFile(path, "capture_run");
        endsInOrder(bench, true);
    }
    Bench unwatchable; // its descriptor is above those that select takes
    const rlimit many{4096, 4096};
    setrlimit(RLIMIT_NOFILE, &many);
    std::vector<qz::common::UniqueFd> taken;
    while (taken.empty() || taken.back().Get() < FD_SETSIZE)
        taken.emplace_back(dup(0));
    endsInOrder(unwatchable, false);
}

TEST(Commands, APipeThatCannotBeWatchedAnyMoreEndsTheSession) {
    RunningSession session;
    const std::string path = Appliance::Tmp("capture.fifo");
    Appliance::Command("garbage"); // the task has it open, and looks at it again and again
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry, gone) == path)
            syscall(SYS_close, std::stoi(entry.path().filename())); // close itself, the thread sanitizer would report
    }
    EXPECT_TRUE(session.Ended(5000));
    EXPECT_EQ(session.log.Count("ERR FIFO select failed"), 1);
    EXPECT_EQ(ReadFile(Appliance::Tmp("liveview.gif")), ReadFile(Appliance::Tmp("liveview_failed.jpg")));
}

TEST(Commands, AHangingConverterIsKilledAndTheLastLiveViewStays) {
    RunningSession session;
    const std::string half = Appliance::Tmp("liveview_tmp.gif");
    WriteFile(Appliance::Tmp("liveview.gif"), "the last one");
    Appliance::ReplaceDecoder("echo half > " + half + "\nexec sleep 60");
    Appliance::Command("capture_run");
    EXPECT_TRUE(Eventually([&] { return Exists(half); }));
    session.capture.OnSignalEvent(SIGTERM, -1);
    EXPECT_FALSE(session.Ended(1500));
    EXPECT_TRUE(session.Ended(2500));
    EXPECT_EQ(ReadFile(Appliance::Tmp("liveview.gif")), "the last one");
    EXPECT_FALSE(Exists(half));

    qz::capture::Converter barred; // before it started one
    barred.Bar();
    EXPECT_FALSE(barred.Convert("4/8", half, Appliance::Tmp("md_capture.jpg")));
}

} // namespace
