// Events, states, library log lines and signals: what is logged and what ends a session.
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "tests/capture/RunningSession.h"
#include "xenc/simulator/simulator.h"

using qz::capture::Capture;
using support::Appliance;
using support::Eventually;
using support::Log;

namespace {

using Texts = std::vector<std::string>;

TEST(Events, TextsOfEveryCode) {
    EXPECT_EQ(Capture::CovertStrEvent(1), "EVT_MONITOR_CONFIGURATION_CHANGE_DETECT");
    EXPECT_EQ(Capture::CovertStrEvent(4), "SETUP EVT_BOARD_HW_BTN_SCREENLOCK_CLICKED");
    EXPECT_EQ(Capture::CovertStrEvent(12), "EVT_MEDIA_HDMI_UNCONNECTED");
    EXPECT_EQ(Capture::CovertStrEvent(21), "EVT_SYS_TEMPERATURE_EMERGENCY");
    EXPECT_EQ(Capture::CovertStrEvent(23), "EVT_SYS_USBMOUNT_DISCONNECTED");
    for (const int code : {0, 24, -1, INT32_MIN, INT32_MAX})
        EXPECT_EQ(Capture::CovertStrEvent(code), "UNKNOWN") << code;
    EXPECT_EQ(Capture::CovertStrState(STATE_SETUP_VENC), "STATE_SETUP_VENC");
    EXPECT_EQ(Capture::CovertStrState(STATE_ENCODING), "STATE_ENCODING");
    for (const int state : {5, -1})
        EXPECT_EQ(Capture::CovertStrState(static_cast<H264EncState>(state)), "UNKNOWN") << state;
}

TEST(Events, OnlyTheListedCodesEndTheSessionAndOnlyFromTheirOwnSource) {
    const std::set<int> sysEnds = {3, 4, 6, 7, 21};
    const std::set<int> mdEnds = {12, 14, 16, 17, 18};
    // All that must not end it, in one session; each that must, in one of its own.
    {
        RunningSession session;
        for (int code = -1; code <= 25; ++code) {
            EXPECT_TRUE(sysEnds.count(code) || xenc_sim_sys_event(code, 0));
            EXPECT_TRUE(mdEnds.count(code) || xenc_sim_md_event(code, 0));
        }
        for (const int signal : {SIGINT, SIGHUP, SIGALRM, SIGTSTP})
            (*session).OnSignalEvent(signal, -1);
        xenc_sim_flush();
        EXPECT_FALSE(session.Ended(50));
        EXPECT_EQ(session.GetLog().Count("DBG SysEvent : EVT_MEDIA_HDMI_UNCONNECTED"), 1);
        EXPECT_EQ(session.GetLog().Count("DBG MdEvent : EVT_BOARD_HW_BTN_RECORD_CLICKED"), 1);
        EXPECT_EQ(session.GetLog().Count("DBG Receive unix signal:2, -1"), 1);
        EXPECT_EQ(session.GetLog().Count("DBG Unused unix signal:2, -1"), 1);
    }
    std::vector<std::pair<std::string, std::function<void(Capture*)>>> ends;
    for (const int code : sysEnds)
        ends.emplace_back("sys " + std::to_string(code), [code](Capture*) { xenc_sim_sys_event(code, 0); });
    for (const int code : mdEnds)
        ends.emplace_back("md " + std::to_string(code), [code](Capture*) { xenc_sim_md_event(code, 0); });
    for (const int signal : {SIGTERM, SIGQUIT, SIGUSR1})
        ends.emplace_back("signal " + std::to_string(signal),
                          [signal](Capture* capture) { capture->OnSignalEvent(signal, -1); });
    for (const auto& [name, end] : ends) {
        SCOPED_TRACE(name);
        xenc_sim_reset();
        RunningSession session;
        end(&*session);
        EXPECT_TRUE(session.Ended(5000));
    }
}

TEST(Events, NullUserTouchesNothingAndBadStatesAreNotRecorded) {
    Log log;
    EXPECT_FALSE(Capture::onXEncSysEvent(3, 0, nullptr));
    EXPECT_FALSE(Capture::onXEncMdEvent(12, 0, nullptr));
    EXPECT_FALSE(Capture::onXEncMdState(4, 0, nullptr));
    EXPECT_TRUE(Capture::onXEncNal(nullptr, -1, 0, nullptr));
    EXPECT_TRUE(Capture::onXEncAudio(nullptr, -1, nullptr));
    Capture::onXEncLog(9, nullptr);
    Capture::onXEncLog(4, "dropped");
    Capture::onXEncLog(5, "kept");
    EXPECT_EQ(log.Messages(), Texts({"DBG LogLevel[5] kept"}));
    log.Forget();
    Capture capture;
    EXPECT_TRUE(Capture::onXEncMdState(4, 0, &capture));
    EXPECT_FALSE(Capture::onXEncMdState(7, 0, &capture));
    EXPECT_TRUE(Capture::onXEncSysEvent(3, 0, &capture)); // no session is running: nothing to end
    EXPECT_EQ(log.Messages(),
              Texts({"DBG MdState : STATE_ENCODING", "DBG MdState : UNKNOWN", "DBG UNKNOWN STATE : 7",
                     "DBG SysEvent : EVT_BOARD_HW_BTN_RECORD_CLICKED"}));
}

TEST(Events, ManyPartiesEndOneSessionOnce) {
    for (int round = 0; round < 20; ++round) {
        xenc_sim_reset();
        const Appliance appliance;
        Log log;
        Capture capture;
        std::vector<std::thread> parties;
        for (int party = 0; party < 4; ++party) {
            parties.emplace_back([&capture, party] {
                for (int i = 0; i < 200; ++i) {
                    Capture::onXEncSysEvent(party % 2 ? 3 : 8, 0, &capture);
                    Capture::onXEncMdEvent(party % 2 ? 17 : 13, 0, &capture);
                    Capture::onXEncMdState(i % 6, 0, &capture);
                    std::this_thread::sleep_for(std::chrono::microseconds(100));
                }
                capture.OnSignalEvent(SIGTERM, -1);
            });
        }
        auto result = std::async(std::launch::async, [&capture] { return capture.Run(); });
        EXPECT_TRUE(Eventually([&log] { return log.Count("INF Initialize succeed") == 1; }));
        for (std::thread& party : parties)
            party.join();
        capture.OnSignalEvent(SIGTERM, -1);
        EXPECT_EQ(result.get(), 1); // also when it had ended before Run came to wait
        capture.Stop();
    }
}

} // namespace
