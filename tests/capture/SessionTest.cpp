// The encoder session against the simulator: the calls in order, the flags as they show in the log, the
// configuration.
#include <cstdlib>

#include <gtest/gtest.h>

#include "capture/Capture.h"
#include "capture/Config.h"
#include "tests/support/Support.h"
#include "xenc/simulator/simulator.h"

using qz::capture::Capture;
using qz::capture::Config;
using support::Calls;
using support::Log;

namespace {

using Texts = std::vector<std::string>;

Texts ParameterBlock(const std::string& rotation) {
    return {"kt_sys_setCallback(set, set)",
            "kt_md_setLogfunc(set)",
            "kt_md_setCallbackOnState(set, set)",
            "kt_md_setCallbackOnEvent(set, set)",
            "kt_md_setFps(15)",
            "kt_md_setGop(1024)",
            "kt_md_setBitrate(1024)",
            "kt_md_vencSize(0, 0)",
            "kt_md_vencSize(1, 2)",
            "kt_md_setScreenRotate(" + rotation + ")",
            "kt_md_init(0, 1, 23, 0, 1)"};
}

Texts Join(std::initializer_list<Texts> parts) {
    Texts all;
    for (const Texts& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

const Texts START = {"kt_md_setCallbackOnNal(set, null)", "kt_md_setCallbackOnAudio(set, null)",
                     "kt_md_start()"};

TEST(Session, OpensWithTheConfiguredRotationAndClosesInReverse) {
    setenv("QZ_SCREEN_MODE", " 2 ", 1);
    Log log(4);
    {
        Capture capture;
        EXPECT_TRUE(Calls().empty());
        EXPECT_TRUE(capture.Initialize());
        EXPECT_EQ(Calls(), Join({{"kt_init(3)"}, ParameterBlock("0xB40000"), START}));
        xenc_sim_forget_calls();
        capture.Stop();
        capture.Stop();
    }
    EXPECT_EQ(Calls(), Texts({"kt_md_stop()", "kt_md_uninit()", "kt_uninit()"}));
    EXPECT_EQ(log.Messages(),
              Texts({"INF kt_init success", "INF kt_md_init success", "INF kt_md_start success",
                     "INF kt_md_stop success", "INF kt_md_uninit success", "INF kt_uninit success",
                     "ERR Destory failed : 0/0/0"}));
}

TEST(Session, FailedStageShowsInTheLogAndIsNotClosed) {
    struct Row {
        const char* failing;
        Texts log;   // of Initialize, less the missing configuration
        Texts close; // the calls of Stop
        Texts closeLog;
    };
    const Row rows[] = {
        {"kt_init", {"ERR kt_init failed"}, {}, {"ERR Destory failed : 0/0/0"}},
        {"kt_md_init",
         {"INF kt_init success", "ERR kt_md_init fail"},
         {"kt_uninit()"},
         {"ERR kt_md_stop failed", "ERR kt_md_uninit failed", "INF kt_uninit success"}},
        {"kt_md_start",
         {"INF kt_init success", "INF kt_md_init success", "ERR kt_md_start failed"},
         {"kt_md_uninit()", "kt_uninit()"},
         {"ERR kt_md_stop failed", "INF kt_md_uninit success", "INF kt_uninit success"}},
        {"kt_md_stop",
         {"INF kt_init success", "INF kt_md_init success", "INF kt_md_start success"},
         {"kt_md_stop()", "kt_md_uninit()", "kt_uninit()"},
         {"ERR kt_md_stop failed", "ERR kt_md_uninit failed", "INF kt_uninit success"}},
        {"kt_uninit",
         {"INF kt_init success", "INF kt_md_init success", "INF kt_md_start success"},
         {"kt_md_stop()", "kt_md_uninit()", "kt_uninit()"},
         {"INF kt_md_stop success", "INF kt_md_uninit success", "ERR kt_uninit failed"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.failing);
        xenc_sim_reset();
        Log log(4);
        Capture capture;
        xenc_sim_control(("fail " + std::string(row.failing)).c_str());
        EXPECT_EQ(capture.Initialize(), row.log.size() == 3 && row.log.back() == "INF kt_md_start success");
        EXPECT_EQ(log.Messages(), Join({{"ERR  * read system configuration fail."}, row.log}));
        log.Forget();
        xenc_sim_forget_calls();
        capture.Stop();
        EXPECT_EQ(Calls(), row.close);
        EXPECT_EQ(log.Messages(), row.closeLog);
    }
}

TEST(Session, ScreenModeReopensWithTheNewRotation) {
    struct Row {
        const char* failing;
        int mode;
        Texts calls;
        Texts log;
    };
    const Texts close = {"kt_md_stop()", "kt_md_uninit()"};
    const Row rows[] = {
        {"",
         3,
         Join({close, ParameterBlock("0x10E0000"), START}),
         {"INF kt_md_setScreenRotate success", "INF ScreenModeChange success: 3"}},
        {"",
         4,
         Join({close, ParameterBlock("0x0"), START}),
         {"INF kt_md_setScreenRotate success", "INF ScreenModeChange success: 4"}},
        {"kt_md_stop", 1, {"kt_md_stop()"}, {"INF ScreenModeChange failed: 1"}},
        {"kt_md_uninit", 1, close, {"INF ScreenModeChange failed: 1"}},
        {"kt_md_init",
         1,
         Join({close, ParameterBlock("0x5A0000")}),
         {"ERR kt_md_init fail", "INF ScreenModeChange failed: 1"}},
        {"kt_md_start",
         2,
         Join({close, ParameterBlock("0xB40000"), START}),
         {"ERR kt_md_start failed", "INF ScreenModeChange failed: 2"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.failing);
        xenc_sim_reset();
        Log log(4);
        Capture capture;
        ASSERT_TRUE(capture.Initialize());
        log.Forget();
        xenc_sim_forget_calls();
        if (*row.failing)
            xenc_sim_control(("fail " + std::string(row.failing)).c_str());
        capture.resetScreenMode(row.mode);
        EXPECT_EQ(Calls(), row.calls);
        EXPECT_EQ(log.Messages(), row.log);
        EXPECT_EQ(Config::instance()->ScreenMode(), row.mode);
        capture.Stop();
    }
}

TEST(Config, ReadsTheScreenModeFromTheEnvironment) {
    struct Row {
        const char* text; // null: unset
        bool read;
        int mode; // 7 before
        const char* complaint;
    };
    const Row rows[] = {
        {nullptr, false, 7, nullptr},
        {"  ", false, 7, nullptr},
        {" 2 ", true, 2, nullptr},
        {"3x", true, 3, nullptr},
        {"-1", true, -1, nullptr},
        {"x", false, 0, "DBG stoi"},
        {"99999999999", false, 0, "DBG stoi"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text ? row.text : "unset");
        Log log;
        Config::instance()->SetScreenMode(7);
        if (row.text)
            setenv("QZ_SCREEN_MODE", row.text, 1);
        else
            unsetenv("QZ_SCREEN_MODE");
        log.Forget();
        EXPECT_EQ(Config::instance()->ReadSystemConfiguration(), row.read);
        EXPECT_EQ(Config::instance()->ScreenMode(), row.mode);
        Texts expected = {"DBG load from system environment configuration."};
        if (row.complaint)
            expected.emplace_back(row.complaint);
        EXPECT_EQ(log.Messages(), expected);
    }
}

TEST(Config, PrintsOneRecordOfSeveralLines) {
    Log log;
    Config::instance()->SetScreenMode(3);
    Config::instance()->Print();
    const std::string ruler(59, '*');
    const Texts lines = log.Messages();
    ASSERT_EQ(lines.size(), 10U);
    EXPECT_NE(lines[0].find("||DBG|NA|["), std::string::npos);
    EXPECT_EQ(
        Texts(lines.begin() + 1, lines.end() - 1),
        Texts({ruler, "* Configuration", ruler, ruler, "* Screen", ruler, " - QZ_SCREEN_MODE = 3", ""}));
    EXPECT_EQ(lines[9].compare(0, 4, " [L:"), 0) << lines[9];
}

} // namespace
