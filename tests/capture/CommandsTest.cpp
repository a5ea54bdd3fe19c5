// The command pipe: what each text does, and what becomes of a pipe that is none.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/capture/RunningSession.h"
#include "xenc/simulator/simulator.h"

using qz::capture::Capture;
using support::Appliance;
using support::Eventually;
using support::Exists;
using support::Log;
using support::ReadFile;

namespace {

using Texts = std::vector<std::string>;

TEST(Commands, ScreenModeArguments) {
    RunningSession session;
    const std::pair<const char*, const char*> rows[] = {
        {"screenMode4", "ERR Invalid screenMode number: 4"}, {"screenMode-", "ERR Invalid screenMode: -"},
        {"screenMode", "ERR Invalid screenMode: "},          {"screenModex", "ERR Invalid screenMode: x"},
        {"screenMode1", "INF ScreenModeChange success: 1"},
    };
    for (const auto& [command, line] : rows)
        EXPECT_TRUE(session.Command(command, line)) << command;
    EXPECT_FALSE(session.Ended(0));
}

TEST(Commands, ChunksAreMatchedByWhatTheyHold) {
    RunningSession session;
    const std::string done = "INF kt_md_capture success";
    EXPECT_TRUE(session.Command("capture_run\n", done));
    // Garbage, halves and zero bytes do nothing; two commands that were written in one go both count.
    Appliance::Command("garbage");
    Appliance::Command(std::string("\0capture_run", 12));
    Appliance::Command("capture_en");
    EXPECT_TRUE(session.Command("capture_runcapture_run", done));
    EXPECT_TRUE(Eventually([&] { return session.GetLog().Count(done) == 3; }));
    EXPECT_FALSE(session.Ended(100));
    Appliance::Command("capture_end");
    EXPECT_TRUE(session.Ended(5000));
    EXPECT_EQ(session.GetLog().Count("INF end the thread"), 1);
    EXPECT_EQ(session.GetLog().Count(done), 3);
}

TEST(Commands, WritersThatComeAndGoCauseNoBusyLoop) {
    RunningSession session;
    for (int i = 0; i < 20; ++i)
        Appliance::Command("");
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_SELF, &before);
    EXPECT_FALSE(session.Ended(500));
    getrusage(RUSAGE_SELF, &after);
    // The pipe is at its end of file and stays readable: at most 100 passes a second, each with one sleep.
    EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 50 * 6);
}

TEST(Commands, FailedSnapshotPublishesTheFailurePicture) {
    RunningSession session;
    EXPECT_TRUE(session.Command("capture_run", "INF kt_md_capture success"));
    xenc_sim_control("fail kt_md_capture");
    EXPECT_TRUE(session.Command("capture_run", "INF copy finished: `" +
                                                   Appliance::Tmp("liveview_failed.jpg") + "` to `" +
                                                   Appliance::Tmp("liveview.gif") + "`"));
    EXPECT_EQ(session.GetLog().Count("ERR kt_md_capture failed"), 1);
    const std::string failure = ReadFile(Appliance::Tmp("liveview_failed.jpg"));
    EXPECT_EQ(ReadFile(Appliance::Tmp("md_capture.jpg")), failure);
    EXPECT_EQ(ReadFile(Appliance::Tmp("liveview.gif")), failure);
    EXPECT_TRUE(session.Command("capture_run", "INF kt_md_capture success")); // and goes on
}

TEST(Commands, FailedRotationEndsTheSession) {
    RunningSession session;
    xenc_sim_control("fail kt_md_start");
    EXPECT_TRUE(session.Command("screenMode2", "INF ScreenModeChange failed: 2"));
    EXPECT_TRUE(session.Ended(5000));
}

TEST(Commands, WithoutAPipeTheSessionEndsInOrder) {
    for (const char* kind : {"missing", "regular file", "descriptor above select's"}) {
        SCOPED_TRACE(kind);
        xenc_sim_reset();
        Appliance appliance;
        const std::string path = Appliance::Tmp("capture.fifo");
        std::vector<int> descriptors;
        const bool invalid = *kind != 'd';
        if (invalid)
            unlink(path.c_str());
        if (*kind == 'r')
            support::WriteFile(path, "capture_run");
        Log log;
        Capture capture;
        if (!invalid) {
            const rlimit limit{4096, 4096};
            setrlimit(RLIMIT_NOFILE, &limit);
            for (int fd = 0; fd < FD_SETSIZE;)
                descriptors.push_back(fd = open("/dev/null", O_RDONLY | O_CLOEXEC));
        }
        EXPECT_EQ(capture.Run(), 1);
        EXPECT_EQ(log.Count("ERR FIFO is invalid"), invalid ? 1 : 0);
        EXPECT_EQ(Exists(path), !invalid);
        capture.Stop();
        for (const int fd : descriptors)
            close(fd);
    }
}

TEST(Commands, ASlowSnapshotHoldsUpTheEndOnlyUntilItIsDone) {
    RunningSession session;
    xenc_sim_control("capture slow 700");
    Appliance::Command("capture_run");
    EXPECT_TRUE(Eventually(
        [] { return !support::Calls().empty() && support::CallNames().back() == "kt_md_capture"; }));
    xenc_sim_md_event(17, 0);
    EXPECT_FALSE(session.Ended(100)); // Run waits: nothing is pulled from under the snapshot
    EXPECT_TRUE(session.Ended(3000));
    EXPECT_EQ(support::CallNames().back(), "kt_md_capture");
}

TEST(Commands, AHangingConverterIsKilledAndTheLastLiveViewStays) {
    RunningSession session;
    EXPECT_TRUE(session.Command("capture_run", "INF kt_md_capture success"));
    EXPECT_TRUE(Eventually([] { return Exists(Appliance::Tmp("liveview.gif")); }));
    const std::string picture = ReadFile(Appliance::Tmp("liveview.gif"));
    const std::string djpeg = "/opt/tormel/plinta/agent/latest/djpeg";
    unlink(djpeg.c_str());
    support::WriteFile(djpeg,
                       "#!/bin/sh\necho half > " + Appliance::Tmp("liveview_tmp.gif") + "\nexec sleep 60\n");
    chmod(djpeg.c_str(), 0755);
    Appliance::Command("capture_run");
    EXPECT_TRUE(Eventually([] { return Exists(Appliance::Tmp("liveview_tmp.gif")); }));
    (*session).OnSignalEvent(SIGTERM, -1);
    EXPECT_FALSE(session.Ended(1500));
    EXPECT_TRUE(session.Ended(2500));
    EXPECT_EQ(ReadFile(Appliance::Tmp("liveview.gif")), picture);
    EXPECT_FALSE(Exists(Appliance::Tmp("liveview_tmp.gif")));
}

} // namespace
