// Events, states, library log lines and signals: what is logged and what ends a session.
#include <cstring>
#include <set>

#include "capture/SignalHandler.h"
#include "tests/capture/RunningSession.h"

using namespace support;
using qz::capture::Capture;
using qz::capture::SignalHandler;

namespace {

// Of the system (s), of the media (m), a signal (x).  Events go by their name in the log where they have one.
void Report(Capture& capture, char source, int code) {
    if (source == 'x')
        return capture.OnSignalEvent(code, -1);
    const bool hasName = code >= 1 && code <= 23;
    const std::string event = hasName ? Capture::CovertStrEvent(code) : std::to_string(code);
    EXPECT_TRUE(xenc_sim_control(((source == 's' ? "sys " : "md ") + event).c_str()));
}

TEST(Events, OnlyTheListedCodesEndTheSessionAndOnlyFromTheirOwnSource) {
    const std::set<std::pair<char, int>> ends = {{'s', 3},       {'s', 4},       {'s', 6},      {'s', 7},  {'s', 21},
                                                 {'m', 12},      {'m', 14},      {'m', 16},     {'m', 17}, {'m', 18},
                                                 {'x', SIGTERM}, {'x', SIGQUIT}, {'x', SIGUSR1}};
    for (const auto& [source, code] : ends) {
        SCOPED_TRACE(source + std::to_string(code));
        RunningSession session;
        EXPECT_FALSE(session.capture.Initialize()); // not beside one that runs
        Report(session.capture, source, code);
        EXPECT_TRUE(session.Ended(5000));
        EXPECT_EQ(session.capture.Run(), -1); // once per object
        EXPECT_EQ(session.log.Messages().back(), "ERR Run was called before.");
    }
    RunningSession session;
    session.log.Forget();
    for (const char source : {'s', 'm', 'x'}) {
        for (int code = -1; code <= 25; ++code) {
            if (ends.count({source, code}) == 0)
                Report(session.capture, source, code);
        }
    }
    EXPECT_FALSE(xenc_sim_control("md foo"));
    xenc_sim_flush();
    const std::string wrong = "instead of 'foo' in: md foo";
    EXPECT_EQ(
        session.log.Count("DBG LogLevel[5] control: expected an event like 12 or EVT_MEDIA_HDMI_UNCONNECTED " + wrong),
        1);
    EXPECT_FALSE(session.Ended(50));
    EXPECT_EQ(session.log.Count("DBG Unused unix signal:2, -1"), 1);
    for (int code = 1; code <= 23; ++code) {
        const std::string name = Capture::CovertStrEvent(code);
        EXPECT_EQ(session.log.Count("DBG SysEvent : " + name), 1 - ends.count({'s', code})) << name;
        EXPECT_EQ(session.log.Count("DBG MdEvent : " + name), 1 - ends.count({'m', code})) << name;
    }
}

TEST(Events, NullUsersUnknownCodesAndNoSession) {
    Bench bench;
    EXPECT_EQ(Capture::CovertStrEvent(1), "EVT_MONITOR_CONFIGURATION_CHANGE_DETECT");
    EXPECT_EQ(Capture::CovertStrEvent(23), "EVT_SYS_USBMOUNT_DISCONNECTED");
    for (const int code : {0, 24, INT32_MIN, INT32_MAX})
        EXPECT_EQ(Capture::CovertStrEvent(code), "UNKNOWN") << code;
    EXPECT_FALSE(Capture::onXEncSysEvent(3, 0, nullptr) || Capture::onXEncMdEvent(12, 0, nullptr) ||
                 Capture::onXEncMdState(4, 0, nullptr));
    EXPECT_TRUE(Capture::onXEncNal(nullptr, -1, 0, nullptr) && Capture::onXEncAudio(nullptr, -1, nullptr));
    std::string states;
    for (int state = -1; state <= 5; ++state)
        states += Capture::CovertStrState(static_cast<H264EncState>(state)) + " ";
    EXPECT_EQ(states, "UNKNOWN STATE_ZERO STATE_INIT STATE_SETUP STATE_SETUP_VENC STATE_ENCODING UNKNOWN ");
    Capture::onXEncLog(9, nullptr);
    Capture::onXEncLog(4, "dropped");
    Capture::onXEncLog(5, "kept");
    EXPECT_TRUE(Capture::onXEncMdState(4, 0, &bench.capture));
    EXPECT_FALSE(Capture::onXEncMdState(5, 0, &bench.capture) || Capture::onXEncMdState(-1, 0, &bench.capture));
    EXPECT_TRUE(Capture::onXEncSysEvent(3, 0, &bench.capture)); // no session is running: nothing to end
    EXPECT_EQ(
        bench.log.Messages(),
        Texts({"DBG LogLevel[5] kept", "DBG MdState : STATE_ENCODING", "DBG MdState : UNKNOWN", "DBG UNKNOWN STATE : 5",
               "DBG MdState : UNKNOWN", "DBG UNKNOWN STATE : -1", "DBG SysEvent : EVT_BOARD_HW_BTN_RECORD_CLICKED"}));
}

TEST(Signals, UnknownOnesAreNamedAndNoneIsDispatchedOnceStopped) {
    Log log;
    ASSERT_TRUE(SignalHandler::setupSignal());
    for (const int number : {256 + SIGTERM, -1, SIGUSR2}) {
        log.Forget();
        SignalHandler::handleSignal(number);
        EXPECT_TRUE(log.Logs("INF  unregistered signal. ignore."));
        const std::string name = strsignal(number);
        EXPECT_EQ(log.Messages()[0], "INF  Receives signal(" + name + ":" + std::to_string(number) + "). ");
    }

    static struct : qz::capture::SignalEventObserver {
        void OnSignalEvent(int, pid_t) override { ++calls; }
        std::atomic<int> calls{0};
    } observer; // borrowed for good
    SignalHandler::subscribe(&observer);
    SignalHandler::withLogAtRest([] { SignalHandler::handleSignal(SIGTERM); }, nullptr); // the dispatcher waits
    SignalHandler::stop();
    EXPECT_EQ(observer.calls, 1); // what was sent before
    SignalHandler::handleSignal(SIGTERM);
    SignalHandler::stop(); // would dispatch it now
    EXPECT_EQ(observer.calls, 1);
}

TEST(Signals, AFaultIsHandedToTheActionThatWasInForceBefore) {
    struct sigaction plain {
    }, told{};
    plain.sa_handler = [](int signal) { _exit(signal == SIGFPE ? 7 : 1); };
    told.sa_flags = SA_SIGINFO;
    told.sa_sigaction = [](int, siginfo_t* info, void*) { _exit(info->si_signo == SIGILL ? 8 : 1); };
    const std::tuple<int, struct sigaction*, int> rows[] = {{SIGFPE, &plain, 7}, {SIGILL, &told, 8}};
    for (const auto& [number, before, ending] : rows) {
        const pid_t child = fork();
        if (child == 0) {
            sigaction(number, before, nullptr);
            SignalHandler::setupSignal();
            raise(number);
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, W_EXITCODE(ending, 0));
    }
}

TEST(Events, ManyPartiesEndOneSessionOnce) {
    for (int round = 0; round < 20; ++round) {
        Bench bench;
        Capture& capture = bench.capture;
        auto result = std::async(std::launch::async, [&capture] { return capture.Run(); });
        OnFourThreads([&capture](int party) {
            for (int i = 0; i < 200; ++i) {
                Capture::onXEncSysEvent(party % 2 ? 3 : 8, 0, &capture);
                Capture::onXEncMdState(i % 6, 0, &capture);
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        });
        EXPECT_TRUE(bench.log.Logs("INF Initialize succeed"));
        capture.OnSignalEvent(SIGTERM, -1);
        EXPECT_EQ(result.get(), 1); // also when it had ended before Run came to wait
    }
}

} // namespace
