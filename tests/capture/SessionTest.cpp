// The encoder session against the simulator: the calls in order, the flags as they show in the log, the configuration.

#include "capture/Config.h"
#include "tests/capture/RunningSession.h"

using namespace support;
using qz::capture::Config;

namespace {

// The calls of an opening, to kt_md_start or, when kt_md_init fails, to that.
std::string Opening(const std::string& rotation, bool started = true) {
    const std::string calls =
        "kt_sys_setCallback(set, set); kt_md_setLogfunc(set); kt_md_setCallbackOnState(set, set); "
        "kt_md_setCallbackOnEvent(set, set); kt_md_setFps(15); kt_md_setGop(1024); kt_md_setBitrate(1024); "
        "kt_md_vencSize(0, 0); kt_md_vencSize(1, 2); kt_md_setScreenRotate(" +
        rotation + "); kt_md_init(0, 1, 23, 0, 1)";
    return started ? calls + "; kt_md_setCallbackOnNal(set, null); kt_md_setCallbackOnAudio(set, null); kt_md_start()"
                   : calls;
}

// An empty name is a wrong line to the simulator, and nothing fails.
void Fail(const std::string& function) {
    xenc_sim_control(("fail " + function).c_str());
}

TEST(Session, OpensStageByStageAndClosesWhatIsOpen) {
    const std::string init = "INF kt_init success", none = "kt_init(3)", all = none + "; " + Opening("0xB40000");
    const std::string open = init + "; INF kt_md_init success; INF kt_md_start success";
    const std::string stop = "kt_md_stop(); ", closing = stop + "kt_md_uninit(); kt_uninit()";
    // What fails, the calls and the log of the opening, those of the closing.
    const std::array<std::string, 5> rows[] = {
        {"", all, open, closing, "INF kt_md_stop success; INF kt_md_uninit success; INF kt_uninit success"},
        {"kt_init", none, "ERR kt_init failed", "", "ERR Destory failed : 0/0/0"},
        {"kt_md_init", none + "; " + Opening("0xB40000", false), init + "; ERR kt_md_init fail", "kt_uninit()",
         "ERR kt_md_stop failed; ERR kt_md_uninit failed; INF kt_uninit success"},
        {"kt_md_start", all, init + "; INF kt_md_init success; ERR kt_md_start failed", "kt_md_uninit(); kt_uninit()",
         "ERR kt_md_stop failed; INF kt_md_uninit success; INF kt_uninit success"},
        {"kt_md_stop", all, open, closing, "ERR kt_md_stop failed; ERR kt_md_uninit failed; INF kt_uninit success"},
        {"kt_uninit", all, open, closing, "INF kt_md_stop success; INF kt_md_uninit success; ERR kt_uninit failed"}};
    setenv("QZ_SCREEN_MODE", " 2 ", 1);
    for (const auto& [failing, openCalls, openLog, closeCalls, closeLog] : rows) {
        SCOPED_TRACE("failing: " + failing);
        Bench bench(4);
        Fail(failing);
        EXPECT_EQ(bench.capture.Initialize(), openLog == open);
        EXPECT_EQ(CallsSince(), openCalls);
        EXPECT_EQ(Joined(bench.log.Messages()), openLog);
        bench.log.Forget();
        bench.capture.Stop();
        EXPECT_EQ(CallsSince(), closeCalls);
        EXPECT_EQ(Joined(bench.log.Messages()), closeLog);
        if (failing.empty()) {
            bench.log.Forget();
            bench.capture.Stop();
            EXPECT_EQ(CallsSince() + Joined(bench.log.Messages()), "ERR Destory failed : 0/0/0");
        }
    }
}

TEST(Session, ScreenModeReopensWithTheNewRotation) {
    const std::string close = "kt_md_stop(); kt_md_uninit()", failed = "INF ScreenModeChange failed: ";
    const std::string done = "INF kt_md_setScreenRotate success; INF ScreenModeChange success: ";
    const std::string stop = "kt_md_stop(); ", uninit = "kt_md_uninit(); ", last = "kt_uninit()";
    // What fails, the mode, the calls and the log, the calls of the closing then.
    const std::tuple<std::string, int, std::string, std::string, std::string> rows[] = {
        {"", 3, close + "; " + Opening("0x10E0000"), done + "3", stop + uninit + last},
        {"", 4, close + "; " + Opening("0x0"), done + "4", stop + uninit + last},
        {"kt_md_stop", 1, "kt_md_stop()", failed + "1", uninit + last},
        {"kt_md_uninit", 1, close, failed + "1", uninit + last},
        {"kt_md_init", 1, close + "; " + Opening("0x5A0000", false), "ERR kt_md_init fail; " + failed + "1",
         stop + last},
        {"kt_md_start", 2, close + "; " + Opening("0xB40000"), "ERR kt_md_start failed; " + failed + "2",
         uninit + last}};
    for (const auto& [failing, mode, calls, log, closing] : rows) {
        SCOPED_TRACE("failing: " + failing);
        Bench bench(4);
        ASSERT_TRUE(bench.capture.Initialize());
        bench.log.Forget();
        CallsSince();
        Fail(failing);
        bench.capture.resetScreenMode(mode);
        EXPECT_EQ(CallsSince(), calls);
        EXPECT_EQ(Joined(bench.log.Messages()), log);
        EXPECT_TRUE(failing.empty() || !bench.capture.XEncCapture());
        EXPECT_EQ(bench.log.Count("ERR Capture not initialized"), !failing.empty());
        bench.capture.Stop();
        EXPECT_EQ(CallsSince(), closing);
        EXPECT_EQ(Config::instance()->ScreenMode(), mode);
    }
}

TEST(Config, ReadsTheScreenModeFromTheEnvironment) {
    // The text (null: unset), whether it is read, the mode afterwards (7 before).
    const std::tuple<const char*, bool, int> rows[] = {{nullptr, false, 7},      {"  ", false, 7}, {" 2 ", true, 2},
                                                       {"3x", true, 3},          {"-1", true, -1}, {"x", false, 0},
                                                       {"99999999999", false, 0}};
    for (const auto& [text, read, mode] : rows) {
        SCOPED_TRACE(text ? text : "unset");
        Log log;
        Config::instance()->SetScreenMode(7);
        text ? setenv("QZ_SCREEN_MODE", text, 1) : unsetenv("QZ_SCREEN_MODE");
        EXPECT_EQ(Config::instance()->ReadSystemConfiguration(), read);
        EXPECT_EQ(Config::instance()->ScreenMode(), mode);
        EXPECT_EQ(log.Count("DBG stoi"), mode == 0);
    }
}

} // namespace
