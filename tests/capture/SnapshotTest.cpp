// Snapshots and the live view with the real decoder, damaged pictures and decoders that fail; the file copy.
#include <sys/time.h>

#include "capture/Config.h"
#include "tests/capture/RunningSession.h"

using namespace support;
using qz::capture::Capture;
using qz::capture::Config;
using qz::common::UniqueFd;

namespace {

// A bench that is encoding, with a picture of that size before the encoder.
struct Encoding : Bench {
    Encoding(int width, int height) : Bench(4) {
        MakeJpeg("/opt/picture.jpg", width, height);
        setenv("XENC_PICTURE", "/opt/picture.jpg", 1);
        EXPECT_TRUE(capture.Initialize());
        log.Forget();
    }
};

TEST(Snapshot, ScaleOfEveryStep) {
    const std::tuple<int, bool, int, const char*> rows[] = {
        {1920, false, 50, "4/8"}, {1920, true, 40, "3/8"},  {1280, false, 70, "5/8"}, {1280, true, 70, "5/8"},
        {800, false, 120, "8/8"}, {800, true, 110, "8/8"},  {960, false, 100, "8/8"}, {961, false, 90, "7/8"},
        {1200, false, 80, "6/8"}, {1600, false, 60, "5/8"}, {2400, false, 40, "3/8"}, {3200, false, 30, "3/8"},
        {4800, false, 20, "2/8"}, {9600, false, 10, "1/8"}, {9601, false, 0, "8/8"},  {10240, true, 10, "1/8"},
        {5120, true, 10, "1/8"},  {65500, false, 0, "8/8"}, {1, false, 96000, "8/8"}, {1024, true, 90, "7/8"}};
    for (const auto& [longest, vertical, rate, fraction] : rows) {
        for (const Capture::Scale& scale :
             {Capture::ScaleFor(longest, 1, vertical), Capture::ScaleFor(1, longest, vertical)}) {
            EXPECT_EQ(scale.rate, rate) << longest << vertical;
            EXPECT_STREQ(scale.fraction, fraction) << longest << vertical;
        }
    }
}

TEST(Snapshot, PublishesThePictureAndItsScaledLiveView) {
    const std::tuple<int, int, int, const char*, std::string> rows[] = {
        {1366, 768, 2, "GIF 854 x 480", "1366 X 768, rate: 70, ratio: 0.7, vertical: 0"},
        {1920, 1080, 3, "GIF 720 x 405", "1920 X 1080, rate: 40, ratio: 0.5, vertical: 1"},
        {17, 9, -1, "GIF 17 x 9", "17 X 9, rate: 5640, ratio: 56.4, vertical: 0"}};
    for (const auto& [width, height, mode, size, line] : rows) {
        SCOPED_TRACE(line);
        Encoding bench(width, height);
        Config::instance()->SetScreenMode(mode);
        EXPECT_TRUE(bench.capture.XEncCapture());
        const std::string expected = "INF kt_md_capture success; INF Resize complete. jpegSize: " + line;
        EXPECT_EQ(Joined(bench.log.Messages()), expected);
        EXPECT_EQ(ReadFile(Appliance::Tmp("md_capture.jpg")), ReadFile("/opt/picture.jpg"));
        EXPECT_EQ(GifSize(Appliance::Tmp("liveview.gif")), size);
        EXPECT_FALSE(Exists(Appliance::Tmp("md_capture_tmp.jpg")) || Exists(Appliance::Tmp("liveview_tmp.gif")));
        bench.capture.OnXEncMdState(STATE_SETUP_VENC, 0);
        EXPECT_FALSE(bench.capture.XEncCapture());
        EXPECT_EQ(Joined(bench.log.Messages()), expected); // refused without a line
        bench.capture.Stop();
        EXPECT_FALSE(bench.capture.XEncCapture());
        EXPECT_EQ(bench.log.Messages().back(), "ERR Capture not initialized");
    }
}

// jpegtran knows what a rotation is.  Flat blocks survive being encoded again.
TEST(Snapshot, GivenPicturesTakeTurnsAndAreTurned) {
    WriteFile("/opt/half.pgm", "P5 16 16 255\n" + std::string(8 * 16, '\xff') + std::string(8 * 16, '\0'));
    Shell("mkdir -p /opt/p && cjpeg -outfile /opt/p/1 /opt/half.pgm && head -c -9 /opt/p/1 >/opt/p/2");
    const std::string snapshot = Appliance::Tmp("md_capture.jpg");
    const std::string turns[] = {"-copy none", "-rotate 90", "-rotate 180", "-rotate 270"};
    for (int mode = 0; mode < 4; ++mode) {
        SCOPED_TRACE(mode);
        Bench bench;
        Config::instance()->SetScreenMode(mode);
        EXPECT_TRUE(bench.capture.Initialize());
        xenc_sim_control("picture /opt/p");
        EXPECT_TRUE(bench.capture.XEncCapture());
        Shell("jpegtran " + turns[mode] + " /opt/p/1 | djpeg >/opt/turned; djpeg " + snapshot + " | cmp - /opt/turned");
        EXPECT_TRUE(bench.capture.XEncCapture()); // of the damaged one
        EXPECT_EQ(ReadFile(snapshot), ReadFile("/opt/p/2"));
        xenc_sim_flush();
        const bool told = Joined(bench.log.Messages()).find("/opt/p/2 not turned") != std::string::npos;
        EXPECT_EQ(told, mode != 0);
    }
}

// Whatever goes wrong after a good conversion, the live view that readers see stays whole, and nothing half-made is
// published by the next failure.
TEST(Snapshot, TheLastLiveViewSurvivesEveryFailure) {
    Encoding bench(640, 480);
    ASSERT_TRUE(bench.capture.XEncCapture());
    const std::string picture = ReadFile(Appliance::Tmp("liveview.gif"));
    ASSERT_EQ(picture.compare(0, 3, "GIF"), 0);
    const std::string tmp = Appliance::Tmp("liveview_tmp.gif"), half = "echo half > " + tmp + "\n";
    // The case (where the simulator obeys it), the decoder, whether the picture is good enough for it.
    const std::tuple<const char*, std::string, bool> rows[] = {{"capture empty", "exit 0", false},
                                                               {"capture truncate 100", "exit 0", false},
                                                               {"capture normal", "exit 0", true},
                                                               {"status 1", half + "exit 1", true},
                                                               {"status 3", half + "exit 3", true},
                                                               {"signal", half + "kill -KILL $$", true},
                                                               {"no decoder", "", true},
                                                               {"not executable", "", true},
                                                               {"warning", half + "exit 2", true}};
    for (const auto& [name, script, sized] : rows) {
        SCOPED_TRACE(name);
        xenc_sim_control(name);
        Appliance::ReplaceDecoder(script);
        chmod(Appliance::DECODER, script.empty() ? 0644 : 0755);
        if (name == std::string("no decoder"))
            unlink(Appliance::DECODER);
        WriteFile(tmp, "leftover of an interrupted conversion");
        EXPECT_TRUE(bench.capture.XEncCapture());
        EXPECT_EQ(bench.log.Messages().back(),
                  sized ? "INF Resize complete. jpegSize: 640 X 480, rate: 150, ratio: 1.5, vertical: 0"
                        : "ERR GetSize failed. jpegSize: 0 X 0");
        // A warning is no failure.
        EXPECT_EQ(ReadFile(Appliance::Tmp("liveview.gif")), *name == 'w' ? "half\n" : picture);
        EXPECT_FALSE(sized && Exists(tmp));
    }
}

// Where SIGCHLD is ignored, nobody learns the decoder's status: the picture itself must tell.
TEST(Snapshot, AnUnknownStatusIsNotAFailedOne) {
    Encoding bench(640, 480);
    signal(SIGCHLD, SIG_IGN);
    const std::string tmp = Appliance::Tmp("liveview_tmp.gif");
    for (const std::string content : {"GIF whole;", "GIF half", ";", ""}) {
        WriteFile(Appliance::Tmp("liveview.gif"), "old");
        Appliance::ReplaceDecoder("printf '" + content + "' > " + tmp);
        EXPECT_TRUE(bench.capture.XEncCapture());
        EXPECT_EQ(ReadFile(Appliance::Tmp("liveview.gif")), content == "GIF whole;" ? content : "old");
        EXPECT_FALSE(Exists(tmp));
    }
    signal(SIGCHLD, SIG_DFL);

    // Signals do not cut the wait for it short.
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 10000}, {0, 10000}}, never{};
    setitimer(ITIMER_REAL, &often, nullptr);
    Appliance::ReplaceDecoder("sleep 0.2\nprintf whole > " + tmp);
    EXPECT_TRUE(bench.capture.XEncCapture());
    setitimer(ITIMER_REAL, &never, nullptr);
    EXPECT_EQ(ReadFile(Appliance::Tmp("liveview.gif")), "whole");
}

TEST(Snapshot, TheDecoderInheritsNothing) {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);
    const UniqueFd theirs(fcntl(0, F_DUPFD, 100)); // as the encoder library's descriptors may be
    RunningSession session;
    // The shell has no descriptor of its own but its script while ls looks.
    Appliance::ReplaceDecoder(
        "led=$(readlink /proc/$$/fd/[0-2])\nexec >/opt/seen\necho \"$led\"\nls /proc/$$/fd\necho \"$@\"\n"
        "sed -nE 's/(Sig[BI][lg][kn]):.*(.{7})$/\\1 \\2/p' /proc/self/status");
    EXPECT_TRUE(session.Command("capture_run", "INF kt_md_capture success"));
    const std::string expected = "/dev/null\n/dev/null\n/dev/null\n"
                                 "0\n1\n10\n2\n" // 10: the shell's own, its script
                                 "-gif -scale 4/8 -outfile /opt/tormel/plinta/var/tmp/liveview_tmp.gif "
                                 "/opt/tormel/plinta/var/tmp/md_capture.jpg\n"
                                 "SigBlk 0000000\nSigIgn 0000000\n"; // 1 to 28
    EXPECT_TRUE(Eventually([&] { return ReadFile("/opt/seen") == expected; })) << ReadFile("/opt/seen");
}

TEST(CopyFile, OutcomesAndWhatStaysUntouched) {
    Log log;
    const std::string big(300000, 'b');
    WriteFile("/opt/big", big);
    Shell("cd /opt; printf old >old; touch empty; printf 1 >one; mkfifo fifo; mkdir full");
    const Mount full("/opt/full", "size=64k");
    const std::string done = "INF copy finished: `", failed = "ERR cannot read File";
    // From, to, the line, what is in /opt/old then.
    const std::array<std::string, 4> rows[] = {{"", "/opt/old", "", "old"},
                                               {"/opt/big", "", "", "old"},
                                               {"/opt/missing", "/opt/old", "", "old"},
                                               {"/opt", "/opt/old", "", "old"},
                                               {"/opt/big", "/opt/old", done + "/opt/big` to `/opt/old`", big},
                                               {"/opt/one", "/opt/old", done + "/opt/one` to `/opt/old`", "1"},
                                               {"/opt/empty", "/opt/old", done + "/opt/empty` to `/opt/old`", ""},
                                               {"/opt/fifo", "/opt/new", failed, ""},
                                               {"/proc/self/mem", "/opt/new", failed, ""},
                                               {"/opt/big", "/opt/no/such", failed, ""},
                                               {"/opt/big", "/opt/full/copy", failed, ""}};
    for (const auto& [from, to, line, content] : rows) {
        SCOPED_TRACE(from + " to " + to);
        EXPECT_EQ(Capture::CopyFileBinary(from, to), line.compare(0, 3, "INF") == 0);
        EXPECT_EQ(Joined(log.Messages()), line);
        EXPECT_EQ(ReadFile("/opt/old"), content);
        log.Forget();
    }
}

} // namespace
