// Snapshots and the live view with the real decoder, damaged pictures and decoders that fail; the file copy.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "capture/Config.h"
#include "tests/capture/RunningSession.h"
#include "xenc/simulator/simulator.h"

using qz::capture::Capture;
using qz::capture::Config;
using support::Appliance;
using support::Exists;
using support::GifSize;
using support::Log;
using support::ReadFile;
using support::WriteFile;

namespace {

using Texts = std::vector<std::string>;

constexpr const char* DJPEG = "/opt/tormel/plinta/agent/latest/djpeg";

void ReplaceDecoder(const std::string& script, mode_t mode = 0755) {
    unlink(DJPEG); // a link to the real one
    WriteFile(DJPEG, script);
    chmod(DJPEG, mode);
}

TEST(Snapshot, ScaleOfEveryStep) {
    struct Row {
        int longest;
        bool vertical;
        int rate;
        const char* fraction;
    };
    const Row rows[] = {
        {1920, false, 50, "4/8"}, {1920, true, 40, "3/8"},  {1280, false, 70, "5/8"},
        {1280, true, 70, "5/8"},  {800, false, 120, "8/8"}, {800, true, 110, "8/8"},
        {960, false, 100, "8/8"}, {961, false, 90, "7/8"},  {1200, false, 80, "6/8"},
        {1600, false, 60, "5/8"}, {2400, false, 40, "3/8"}, {3200, false, 30, "3/8"},
        {4800, false, 20, "2/8"}, {9600, false, 10, "1/8"}, {9601, false, 0, "8/8"},
        {10240, true, 10, "1/8"}, {5120, true, 10, "1/8"},  {65500, false, 0, "8/8"},
        {1, false, 96000, "8/8"}, {1024, true, 90, "7/8"},
    };
    for (const Row& row : rows) {
        for (const Capture::Scale& scale : {Capture::ScaleFor(row.longest, 1, row.vertical),
                                            Capture::ScaleFor(1, row.longest, row.vertical)}) {
            EXPECT_EQ(scale.rate, row.rate) << row.longest << row.vertical;
            EXPECT_STREQ(scale.fraction, row.fraction) << row.longest << row.vertical;
        }
    }
}

TEST(Snapshot, PublishesThePictureAndItsScaledLiveView) {
    struct Row {
        int width, height, mode;
        const char* size;
        const char* line;
    };
    const Row rows[] = {
        {1920, 1080, 0, "960 x 540",
         "INF Resize complete. jpegSize: 1920 X 1080, rate: 50, ratio: 0.5, vertical: 0"},
        {1366, 768, 2, "854 x 480",
         "INF Resize complete. jpegSize: 1366 X 768, rate: 70, ratio: 0.7, vertical: 0"},
        {1920, 1080, 1, "720 x 405",
         "INF Resize complete. jpegSize: 1920 X 1080, rate: 40, ratio: 0.5, vertical: 1"},
        {17, 9, -1, "17 x 9", "INF Resize complete. jpegSize: 17 X 9, rate: 5640, ratio: 56.4, vertical: 0"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.line);
        xenc_sim_reset();
        Appliance appliance;
        support::MakeJpeg("/opt/picture.jpg", row.width, row.height);
        setenv("XENC_PICTURE", "/opt/picture.jpg", 1);
        Log log(4);
        Capture capture;
        ASSERT_TRUE(capture.Initialize());
        Config::instance()->SetScreenMode(row.mode);
        log.Forget();
        EXPECT_TRUE(capture.XEncCapture());
        EXPECT_EQ(log.Messages(), Texts({"INF kt_md_capture success", row.line}));
        EXPECT_EQ(ReadFile(Appliance::Tmp("md_capture.jpg")), ReadFile("/opt/picture.jpg"));
        EXPECT_EQ(GifSize(Appliance::Tmp("liveview.gif")), row.size);
        EXPECT_FALSE(Exists(Appliance::Tmp("md_capture_tmp.jpg")));
        EXPECT_FALSE(Exists(Appliance::Tmp("liveview_tmp.gif")));
        capture.Stop();
        EXPECT_FALSE(capture.XEncCapture());
        EXPECT_EQ(log.Messages().back(), "ERR Capture not initialized");
    }
}

TEST(Snapshot, NotEncodingIsRefusedWithoutALine) {
    Appliance appliance;
    Log log;
    Capture capture;
    ASSERT_TRUE(capture.Initialize());
    capture.OnXEncMdState(STATE_SETUP_VENC, 0);
    log.Forget();
    EXPECT_FALSE(capture.XEncCapture());
    EXPECT_EQ(log.Messages(), Texts());
    EXPECT_FALSE(Exists(Appliance::Tmp("md_capture.jpg")));
}

// Whatever goes wrong after a good conversion, the live view that readers see stays whole, and nothing
// half-made is published by the next failure.
TEST(Snapshot, TheLastLiveViewSurvivesEveryFailure) {
    const std::string half = "#!/bin/sh\necho half > " + Appliance::Tmp("liveview_tmp.gif") + "\n";
    const std::string complete =
        "INF Resize complete. jpegSize: 640 X 480, rate: 150, ratio: 1.5, vertical: 0";
    struct Row {
        const char* name;
        std::function<void()> arrange;
        std::string last; // log line
        bool refreshed;
    };
    const Row rows[] = {
        {"no decoder", [] { unlink(DJPEG); }, complete, false},
        {"not executable", [] { ReplaceDecoder("x", 0644); }, complete, false},
        {"status 1", [&] { ReplaceDecoder(half + "exit 1\n"); }, complete, false},
        {"status 3", [&] { ReplaceDecoder(half + "exit 3\n"); }, complete, false},
        {"signal", [&] { ReplaceDecoder(half + "kill -KILL $$\n"); }, complete, false},
        {"nothing written, leftover present",
         [&] {
             ReplaceDecoder("#!/bin/sh\nexit 0\n");
             WriteFile(Appliance::Tmp("liveview_tmp.gif"), "leftover");
         },
         complete, false},
        {"warning status 2", [&] { ReplaceDecoder(half + "exit 2\n"); }, complete, true},
        {"empty", [] { xenc_sim_control("capture empty"); }, "ERR GetSize failed. jpegSize: 0 X 0", false},
        {"cut in the header", [] { xenc_sim_control("capture truncate 100"); },
         "ERR GetSize failed. jpegSize: 0 X 0", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        xenc_sim_reset();
        Appliance appliance;
        support::MakeJpeg("/opt/picture.jpg", 640, 480);
        setenv("XENC_PICTURE", "/opt/picture.jpg", 1);
        Log log;
        Capture capture;
        ASSERT_TRUE(capture.Initialize());
        ASSERT_TRUE(capture.XEncCapture());
        const std::string picture = ReadFile(Appliance::Tmp("liveview.gif"));
        ASSERT_EQ(picture.compare(0, 3, "GIF"), 0);
        row.arrange();
        EXPECT_TRUE(capture.XEncCapture());
        EXPECT_EQ(log.Messages().back(), row.last);
        EXPECT_EQ(ReadFile(Appliance::Tmp("liveview.gif")), row.refreshed ? "half\n" : picture);
        EXPECT_FALSE(Exists(Appliance::Tmp("liveview_tmp.gif")));
        capture.Stop();
    }
}

TEST(Snapshot, TheDecoderInheritsNothing) {
    signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(fcntl(0, F_DUPFD, 100), 100); // as the encoder library's descriptors may be
    RunningSession session;
    ReplaceDecoder("#!/bin/sh\nls /proc/$$/fd | tr '\\n' ' ' > /opt/seen\necho \"$@\" >> /opt/seen\n"
                   "sed -nE 's/(Sig[BI][lg][kn]):.*(....)$/\\1 \\2/p' /proc/self/status >> /opt/seen\n");
    EXPECT_TRUE(session.Command("capture_run", "INF kt_md_capture success"));
    const std::string expected = "0 1 10 2 " // 10: the shell's own, its script
                                 "-gif -scale 4/8 -outfile /opt/tormel/plinta/var/tmp/liveview_tmp.gif "
                                 "/opt/tormel/plinta/var/tmp/md_capture.jpg\n"
                                 "SigBlk 0000\nSigIgn 0000\n"; // SIGPIPE is bit 12
    EXPECT_TRUE(support::Eventually([&expected] { return ReadFile("/opt/seen") == expected; }))
        << ReadFile("/opt/seen");
}

TEST(CopyFile, OutcomesAndWhatStaysUntouched) {
    Appliance appliance;
    Log log;
    const std::string big(300000, 'b');
    WriteFile("/opt/big", big);
    WriteFile("/opt/empty", "");
    WriteFile("/opt/old", "old");
    EXPECT_FALSE(Capture::CopyFileBinary("", "/opt/old"));
    EXPECT_FALSE(Capture::CopyFileBinary("/opt/big", ""));
    EXPECT_FALSE(Capture::CopyFileBinary("/opt/missing", "/opt/old"));
    EXPECT_FALSE(Capture::CopyFileBinary("/opt", "/opt/old"));
    EXPECT_EQ(log.Messages(), Texts());
    EXPECT_EQ(ReadFile("/opt/old"), "old");
    EXPECT_TRUE(Capture::CopyFileBinary("/opt/big", "/opt/old"));
    EXPECT_EQ(ReadFile("/opt/old"), big);
    EXPECT_TRUE(Capture::CopyFileBinary("/opt/empty", "/opt/old"));
    EXPECT_EQ(ReadFile("/opt/old"), "");
    EXPECT_FALSE(Capture::CopyFileBinary("/opt/big", "/opt/no/such"));
    support::Shell("mkdir /opt/full && mount -t tmpfs -o size=64k none /opt/full");
    EXPECT_FALSE(Capture::CopyFileBinary("/opt/big", "/opt/full/copy"));
    support::Shell("umount /opt/full");
    EXPECT_EQ(log.Messages(), Texts({"INF copy finished: `/opt/big` to `/opt/old`",
                                     "INF copy finished: `/opt/empty` to `/opt/old`", "ERR cannot read File",
                                     "ERR cannot read File"}));
}

} // namespace
