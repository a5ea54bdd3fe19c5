// capturectl against the real daemon, and against everything that is wrong without one.
#include "common/LogReader.h"
#include "tests/support/Support.h"

using namespace support;
using qz::common::CauseOfEnd;
using qz::common::LogRecord;
using qz::common::ParseRecord;

namespace {

// What a call prints on both outputs, and its exit status in front: "69 capturectl: the daemon is not running".
std::string Call(const std::string& arguments) {
    const int status = system((std::string(QZ_CAPTURECTL " ") + arguments + " >/opt/answer 2>&1").c_str());
    return std::to_string(WEXITSTATUS(status)) + " " + ReadFile("/opt/answer");
}

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(Control, EachWayInWhichThereIsNoAnswer) {
    Appliance appliance;
    const std::string pipe = Appliance::Tmp("capture.fifo"), stale = "echo $$ >/run/capture.pid";
    const std::array<std::string, 3> rows[] = {
        {"true", "snapshot", "69 capturectl: nobody reads the command pipe: the daemon is not running"},
        {"true", "stop", "69 capturectl: the daemon is not running"},
        {stale, "status", "69 not running\na pid file"},
        {stale, "doctor --json", "\"pid file\": false"},
        {"sleep 60 <>" + pipe + " >/dev/null 2>&1 & sleep 0.1", "end --timeout 1",
         "69 capturectl: the daemon is not running"},
        {"true", "wait-ready --timeout 0.1", "69 capturectl: the daemon is not running"},
        {"rm " + pipe, "rotate 90", "78 capturectl: " + pipe + ": No such file"},
        {"echo >" + pipe, "rotate 90", "76 capturectl: " + pipe + " is no pipe"},
        {"true", "doctor", "78 "},
        {"true", "rotate 45", "64 degrees: 45 not in"},
        {"rm -r /opt/tormel", "snapshot", "78 capturectl: /opt/tormel/plinta/var/tmp: No such file"}};
    for (const auto& [situation, command, answer] : rows) {
        Shell(situation);
        const std::string seen = Call(command);
        EXPECT_TRUE(Has(seen, answer)) << situation << "; " << command << ": " << seen;
    }
    EXPECT_FALSE(Exists(pipe));
}

TEST(Control, PicturesAreNewOrThereIsNone) {
    Appliance appliance;
    WriteFile("/opt/control", "");
    Daemon daemon("--debug", "XENC_CONTROL=/opt/control");
    EXPECT_PRED2(Has, Call("wait-ready"), "0 ready, pid " + std::to_string(daemon.Pid()));
    EXPECT_EQ(Call("doctor").substr(0, 2), "78"); // there is no capture beside the decoder
    EXPECT_PRED2(Has, Call("snapshot -o /opt/a.jpg --live-view /opt/a.gif"), "md_capture.jpg, JPEG, ");
    EXPECT_EQ(ReadFile("/opt/a.jpg"), ReadFile(Appliance::Tmp("md_capture.jpg")));
    EXPECT_EQ(GifSize("/opt/a.gif"), "GIF 960 x 540");
    EXPECT_EQ(Call("snapshot -o /opt/no/such").substr(0, 2), "73");
    EXPECT_EQ(Call("snapshot -o /dev/null"), "73 capturectl: /dev/null is no regular file\n");
    EXPECT_EQ(Call("rotate 90"), "0 turned by 90 degrees\n");
    // A foreign writer with a line end, and one whose picture is older than our asking, do no harm.
    Appliance::Command("capture_run\n");
    EXPECT_PRED2(Has, Call("snapshot --json --live-view /opt/a.gif"), "\"live_view_fresh\": true");
    EXPECT_EQ(GifSize("/opt/a.gif"), "GIF 405 x 720");
    const auto control = [&daemon](const std::string& line) {
        Shell("printf '" + line + "\\nlog 5 " + line + "\\n' >>/opt/control");
        EXPECT_TRUE(daemon.Logs("DBG LogLevel[5] " + line)); // so it has been carried out
    };
    control("fail kt_md_capture 4");
    const std::string stock = Appliance::Tmp("liveview_failed.jpg");
    for (const std::string& to :
         {"cp " + stock + " /opt", "rm " + stock, "mkfifo " + stock, "mv -f /opt/liveview_failed.jpg " + stock}) {
        Shell(to);
        EXPECT_EQ(Call("snapshot --timeout 3"), "1 capturectl: no picture: kt_md_capture failed\n") << to;
        EXPECT_EQ(Call("status").substr(0, 9), "0 running");
    }
    control("state STATE_SETUP");
    EXPECT_EQ(Call("snapshot"), "1 capturectl: no picture: the encoder is not encoding\n");
    control("state STATE_ENCODING");
    // A stranger's request that fails while ours waits for the pipe is not ours, and a command that is lost is
    // written again.
    const std::string fifo = Appliance::Tmp("capture.fifo"), resume = "kill -CONT " + std::to_string(daemon.Pid());
    for (const std::string& before : {"printf capture_run >" + fifo + "; (sleep 0.2; " + resume + ") &",
                                      "(sleep 0.2; head -c 11 " + fifo + " >/dev/null; " + resume + ") &"}) {
        if (before.front() == 'p')
            control("fail kt_md_capture 1"); // another line than above
        kill(daemon.Pid(), SIGSTOP);
        Shell(before);
        EXPECT_PRED2(Has, Call("snapshot --timeout 3"), "0 /opt") << before;
    }
    control("capture empty");
    EXPECT_EQ(Call("snapshot").substr(0, 40), "1 capturectl: no usable picture: GetSize");
    control("capture normal");
    Appliance::ReplaceDecoder("exit 1");
    EXPECT_PRED2(Has, Call("snapshot"), "no new live view: the decoder");
    EXPECT_EQ(Call("snapshot --live-view /opt/none").substr(0, 30), "1 capturectl: no new live view");
    EXPECT_FALSE(Exists("/opt/none"));
    control("capture slow 3000");
    EXPECT_EQ(Call("snapshot --timeout 0.5"), "75 capturectl: no answer within the time given\n");
    control("fail kt_md_stop");
    EXPECT_EQ(Call("rotate 0"), "1 capturectl: the encoder could not be re-opened turned\n");
    EXPECT_EQ(daemon.Status(), 0);
}

TEST(Control, EndsAndTellsOfThem) {
    const std::pair<std::string, std::string> rows[] = {{"end", "the command capture_end"},
                                                        {"stop", "signal 15 (Terminated)"}};
    for (const auto& [command, reason] : rows) {
        Appliance appliance;
        Daemon daemon("", "XENC_CONTROL=/opt/control");
        EXPECT_TRUE(daemon.Ready());
        EXPECT_EQ(Call("status").substr(0, 10), "0 running,");
        EXPECT_PRED2(Has, Call(command), "0 the daemon (pid " + std::to_string(daemon.Pid()) + ") has ended");
        EXPECT_EQ(daemon.Status(1000), 0);
        EXPECT_PRED2(Has, Call("status"), "last end: 2");
        EXPECT_PRED2(Has, Call("status"), ", " + reason + "\n");
    }
    WriteFile("/opt/control", "hang kt_md_capture\n");
    // It dies while the client waits for the outcome, or for the pipe with the second of these in it.
    for (const std::string others : {"", "capture_runcapture_run"}) {
        ReadyDaemon daemon("", "XENC_CONTROL=/opt/control");
        Shell("printf '" + others + "' >" + Appliance::Tmp("capture.fifo"));
        Shell("(sleep 0.3; kill -KILL " + std::to_string(daemon.Pid()) + ") &");
        EXPECT_PRED2(Has, Call("snapshot"), "69 capturectl: the daemon ended meanwhile") << others;
    }
}

TEST(Control, RecordsAndCausesOfAnEnd) {
    const std::string time = "2026-11-16 10:06:09.123", head = time + "||DBG|NA|[812][a::b]";
    // The text, and what it is taken for: time, level, pid, message.
    const std::pair<std::string, std::string> records[] = {{head + " [x] y [L:1] [L:2]", "DBG; 812; [x] y [L:1]"},
                                                           {head + "  [L:2]", "DBG; 812; "},
                                                           {head + " [L:2]", "0; "},
                                                           {head + " m", "0; "},
                                                           {time + "||DBG|NA|[812][a::b m [L:2]", "0; "},
                                                           {"x" + head.substr(1) + " m [L:2]", "0; "},
                                                           {"00" + head.substr(1) + " m [L:2]", "0; "}};
    for (const auto& [text, expected] : records) {
        const LogRecord record = ParseRecord(text);
        EXPECT_EQ(Joined({record.level, std::to_string(record.pid), record.message}), expected);
        EXPECT_EQ(record.time, record.pid == 0 ? "" : time);
    }
    const std::array<std::string, 2> causes[] = {
        {"end the thread", "the command capture_end"},
        {"no requests for 10sec", "idle: nobody asked for a picture for more than 10 seconds"},
        {" Receives signal(Terminated:15). ", "signal 15 (Terminated)"},
        {" Receives signal(Hangup:1). ", ""},
        {"Receives signal(Terminated:15). ", ""},
        {" Receives signal(", ""},
        {"FIFO select failed", "FIFO select failed"},
        {"FIFO select timeout", ""}};
    for (const auto& [message, cause] : causes)
        EXPECT_EQ(CauseOfEnd(message), cause) << message;
}

TEST(Control, TheLogIsReadInWholeRecordsAcrossItsFiles) {
    std::filesystem::create_directories(Appliance::LOG_DIRECTORY);
    const std::string name = std::string(Appliance::LOG_DIRECTORY) + "/capture-2026";
    const std::string head = "2026-11-16 10:06:09.123||DBG|NA|[812][a::b] ";
    WriteFile(name + "1117.log", head + "MdEvent : PULLED [L:2]\ncut off\n" + head + "thi");
    WriteFile(name + "1116.log", head + "\n * one\n\n [L:1]\n");
    for (const char* other : {"1116x.log", "1116.txt", "111.log"})
        WriteFile(name + other, head + "another's [L:9]\n");
    std::filesystem::create_directory(name + "1115.log"); // nothing to read
    qz::common::LogReader log(Appliance::LOG_DIRECTORY, "capture");
    EXPECT_EQ(log.Next()->message, "\n * one\n\n");
    EXPECT_EQ(log.Next()->message, "MdEvent : PULLED");
    EXPECT_EQ(log.Next()->text, "cut off");
    EXPECT_FALSE(log.Next()); // not whole yet
    WriteFile(name + "1117.log",
              head + "MdEvent : PULLED [L:2]\ncut off\n" + head + "third CAPTURE [Terminated] [L:3]\n");
    EXPECT_EQ(log.Next()->message, "third CAPTURE [Terminated]");
    WriteFile(name + "1118.log", head + "after midnight [L:4]\n");
    EXPECT_EQ(log.Next()->pid, 812);
    EXPECT_EQ(Call("status"), "69 not running\nlast end: 2026-11-16 10:06:09.123, after MdEvent : PULLED\n");
    EXPECT_PRED2(Has, Call("log --level INF"), "0 ?? cut off\n");
    EXPECT_EQ(Call("log --grep midnight"), "0 " + head + "after midnight [L:4]\n");
}

} // namespace
