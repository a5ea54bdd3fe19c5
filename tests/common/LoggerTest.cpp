// The log and its pool: line format, thresholds, files and their rotation, refused and discarded items, the bounded
// join.
#include <syslog.h> // before the logger's header, whose names its macros must not touch

#include <iomanip>
#include <set>

#include "common/FileLogger.h"
#include "common/Owners.h"
#include "common/ThreadPool.h"
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace qz::common;
using namespace support;

struct Talker {
    template <typename T>
    static void Say(T piece) {
        QZ_LOG(INF, piece);
    }
    static void AllTags() {
        QZ_LOG(ERR, "e");
        QZ_LOG(WRN, "w");
        QZ_LOG(INF, "i");
        QZ_LOG(DBG, "d");
    }
};

namespace {

const std::string DIRECTORY = Appliance::LOG_DIRECTORY;

// Keeps what the pool does with its items.  The worker stays in the first one until released.
struct Recorder : IExecutor {
    void OnExecute(void* item) override {
        executed.push_back(item);
        for (blocked = true; !release;)
            std::this_thread::yield();
    }
    void OnDeletor(void* item) override { deleted.push_back(item); }

    std::vector<void*> executed, deleted;
    std::atomic<bool> blocked{false}, release{false};
};

TEST(Pool, AdmitsLimitPlusOneAndHandsTheRestToTheDeletor) {
    int items[4];
    Recorder recorder;
    std::thread releaser;
    {
        ThreadPool pool(&recorder, 1, 1);
        EXPECT_TRUE(pool.WorkerCount() == 1 && pool.Idle());
        EXPECT_TRUE(!pool.Enqueue(nullptr) && pool.Enqueue(&items[0]));
        ASSERT_TRUE(Eventually([&] { return recorder.blocked.load(); }));
        EXPECT_FALSE(pool.Idle()); // the queue is empty, the item is in work
        EXPECT_TRUE(pool.Enqueue(&items[1]) && pool.Enqueue(&items[2]));
        EXPECT_FALSE(pool.Enqueue(&items[3]));
        EXPECT_EQ(pool.Pending(), 2);
        releaser = std::thread([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50)); // the destructor has long begun
            recorder.release = true;
        });
    }
    releaser.join();
    EXPECT_EQ(recorder.executed, std::vector<void*>({&items[0]}));
    EXPECT_EQ(recorder.deleted, std::vector<void*>({&items[1], &items[2]}));
}

TEST(Threads, BoundedJoinAlwaysJoins) {
    std::thread quick([] {}), slow([] { std::this_thread::sleep_for(std::chrono::milliseconds(100)); });
    const std::tuple<std::thread*, int, int> rows[] = {
        {&quick, 3000, 0}, {&quick, 3000, 2}, {nullptr, 1, 2}, {&slow, 1, 1}};
    for (const auto& [thread, milliseconds, result] : rows)
        EXPECT_EQ(Util::WaitForJoin(thread, milliseconds), result);
    EXPECT_FALSE(slow.joinable());
}

TEST(Logger, LineFormat) {
    Log log(4);
    Talker::Say(42);
    log.Messages();
    std::string line = ReadFile(LogFile());
    std::replace_if(line.begin(), line.begin() + 23, isdigit, '9');
    const std::string pid = std::to_string(getpid());
    EXPECT_EQ(line.substr(0, line.find("L:")), "9999-99-99 99:99:99.999||INF|NA|[" + pid + "][Talker::Say] 42 [");
    EXPECT_EQ(className("bool ns::Config::Get(const string&, int (*)(int))"), "ns::Config::Get");
    EXPECT_EQ(className("main()"), "main");
    EXPECT_EQ(className("no bracket"), "::");
}

TEST(Logger, TheStatementIsOneExpressionAndLeavesNothingBehind) {
    int evaluated = 0;
    QZ_LOG(ERR, ++evaluated); // before there is a log
    { const Log early(4); }
    QZ_LOG(ERR, ++evaluated); // and after it
    Log log(4);
    const int line = 1, tag = 2, logger = 3;
    const int number = __LINE__ + 4;
    if (line == 2)
        QZ_LOG(INF, "not this");
    else
        QZ_LOG(INF, line << tag << logger << std::setw(9) << std::setfill('*') << std::hex << 255 << std::setw(20));
    QZ_LOG(INF, "failed" << static_cast<const char*>(nullptr) << "dropped");
    QZ_LOG(INF, "next");
    QZ_LOG(DBG, ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_THROW(QZ_LOG(INF, "half a line " << std::string().at(1)), std::out_of_range);
    const Texts messages = log.Messages();
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[0] + messages[2], "INF 123*******ffINF next");
    EXPECT_NE(messages[1].find("] failed"), std::string::npos);
    // The suffix is decimal after a hexadecimal message.
    EXPECT_NE(ReadFile(LogFile()).find("*ff [L:" + std::to_string(number) + "]\n"), std::string::npos);
}

TEST(Logger, Thresholds) {
    const std::string three = "ERR e; WRN w; INF i", all = three + "; DBG d";
    const std::tuple<int, std::string, std::string> rows[] = {{1, "", ""},    {2, "ERR e", ""}, {3, "ERR e; WRN w", ""},
                                                              {4, three, ""}, {5, three, ""},   {6, all, ""},
                                                              {8, "", all}};
    for (const auto& [level, file, console] : rows) {
        SCOPED_TRACE(level);
        Log log(level);
        testing::internal::CaptureStdout();
        Talker::AllTags();
        EXPECT_EQ(Joined(MessagesOf(testing::internal::GetCapturedStdout())), console);
        EXPECT_EQ(Joined(log.Messages()), file);
    }
}

struct SizedLogger : FileLogger {
    explicit SizedLogger(int bytes, int files = 10) {
        m_FileSize = bytes;
        m_MaxFileCount = files;
    }
};

TEST(Logger, KeepsTheTenNewestFilesOfItsOwn) {
    std::filesystem::create_directories(DIRECTORY + "/test-20190101.log");
    const Texts others = {"test-2020010112.log", "other-20200101.log", "test-20200101.txt"};
    for (const std::string& other : others)
        WriteFile(DIRECTORY + "/" + other, "kept");
    for (int day = 10; day < 21; ++day)
        WriteFile(DIRECTORY + "/test-202001" + std::to_string(day) + ".log", "old");
    FileLogger* logger = new SizedLogger(0, 9); // less than ten is not to be had
    testing::internal::CaptureStdout();
    EXPECT_TRUE(logger->Initialize(DIRECTORY, "test", 6, "%Y%m%d", false));
    const std::string removed = "unlink file : " + DIRECTORY + "/test-202001";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), removed + "10.log\n" + removed + "11.log\n");
    std::set<std::string> files;
    EXPECT_EQ(logger->GetLogFileList(files, 17), 10);
    for (const std::string& other : others)
        EXPECT_EQ(ReadFile(DIRECTORY + "/" + other), "kept");
    // A clock that was set back: all others are newer than the open file, which stays.
    for (int day = 10; day < 21; ++day)
        WriteFile(DIRECTORY + "/test-299901" + std::to_string(day) + ".log", "newer");
    testing::internal::CaptureStdout();
    logger->CheckLogCount();
    EXPECT_EQ(testing::internal::GetCapturedStdout().find(LogFile()), std::string::npos);
    EXPECT_TRUE(Exists(LogFile()));
    EXPECT_EQ(logger->GetLogFileList(files = {}, 17), 10);
    delete logger;
}

TEST(Logger, RotatesBySizeWhereSomebodyCounts) {
    std::filesystem::create_directories(DIRECTORY);
    for (const int kib : {0, 1023, 1024}) {
        SCOPED_TRACE(kib);
        WriteFile(DIRECTORY + "/test", "full");
        WriteFile(DIRECTORY + "/test-20200101.log", "old");
        SizedLogger logger(kib * 1024 + 1023);
        EXPECT_TRUE(logger.Initialize(DIRECTORY, "test", 4, "%Y%m%d", false) && logger.CheckLogSize());
        EXPECT_EQ(logger.getFileSize(), kib);
        EXPECT_EQ(ReadFile(DIRECTORY + "/test"), kib == 1024 ? "" : "full");
        EXPECT_EQ(Util::PopenCommand("cat " + DIRECTORY + "/test.2*' '??:??:??.???"), kib == 1024 ? "full" : "");
    }
    SizedLogger logger(-1); // of a counter that has run over
    EXPECT_EQ(logger.getFileSize(), 0);
    EXPECT_FALSE(logger.CheckLogSize()); // nothing is open
}

TEST(Logger, ADateChangeOpensTheNewFile) {
    std::filesystem::create_directories(DIRECTORY);
    FileLogger* logger = FileLogger::instance();
    for (const bool closing : {true, false}) {
        ASSERT_TRUE(logger->Initialize(DIRECTORY, "test", 6, "%y%H%M%S", closing)); // the "date" ends in the second
        for (const char* text : {"first", "second"}) {
            Talker::Say(text + std::to_string(closing));
            logger->Drain(std::chrono::seconds(10));
            EXPECT_EQ(Util::PopenCommand("ls -l /proc/$PPID/fd | grep -c " + DIRECTORY), closing ? "0\n" : "1\n");
            std::this_thread::sleep_for(std::chrono::milliseconds(1001));
        }
        const std::string lines = "(first|second)" + std::to_string(closing);
        EXPECT_EQ(Util::PopenListCommand("grep -lE '" + lines + " .L:' " + DIRECTORY + "/*").size(), 2U);
    }
    delete logger;
}

TEST(Logger, LinesComeBackAfterAMissingDirectoryAndAFullDisk) {
    FileLogger* logger = FileLogger::instance();
    EXPECT_FALSE(logger->Initialize(DIRECTORY, "test", 6, "%Y%m%d", false));
    const auto arrives = [](const std::string& text) {
        return Eventually([&] {
            Talker::Say(text);
            return ReadFile(LogFile()).find("] " + text + " [L:") != std::string::npos;
        });
    };
    Talker::Say("lost");
    std::filesystem::create_directories(DIRECTORY);
    EXPECT_TRUE(arrives("opened late"));
    std::filesystem::remove_all(DIRECTORY);
    Talker::Say("lost");
    ASSERT_EQ(mkdir(DIRECTORY.c_str(), 0755), 0);
    EXPECT_TRUE(arrives("directory is back"));
    // Its descriptor is closed behind its back, while nothing is being written, and the number means another file.
    int highest = 20; // above the log's, which then is above these
    for (const std::string next : {"line", "initialisation"}) {
        logger->Drain(std::chrono::seconds(10));
        Util::CloseAllFDsProcess();
        std::vector<UniqueFd> others;
        for (highest *= 2; others.empty() || others.back().Get() < highest;)
            others.emplace_back(open("/opt/other", O_WRONLY | O_CREAT, 0600));
        EXPECT_TRUE(next == "line" || logger->Initialize(DIRECTORY, "test", 6, "%Y%m%d", false));
        EXPECT_TRUE(arrives("descriptor is back at the next " + next));
        EXPECT_EQ(ReadFile("/opt/other"), "");
        for (const UniqueFd& other : others)
            EXPECT_EQ(FileIdentity::Of(other.Get()), FileIdentity::Of("/opt/other"));
    }

    const Mount small(DIRECTORY, "size=8k");
    ASSERT_TRUE(logger->Initialize(DIRECTORY, "test", 6, "%Y%m%d", false));
    Shell("dd if=/dev/zero of=" + DIRECTORY + "/fill bs=4k count=1 2>/dev/null; true");
    for (int i = 0; i < 100; ++i)
        Talker::Say(std::string(200, 'x'));
    logger->Drain(std::chrono::seconds(10));
    EXPECT_EQ(ReadFile(LogFile()).back(), '\n');
    unlink((DIRECTORY + "/fill").c_str());
    EXPECT_TRUE(arrives("space is back"));
    // No line is the beginning of one and the rest of another.
    EXPECT_EQ(Util::PopenCommand("grep -vEn '^[^[]*INF[^I]*]$' " + LogFile()), "");
    delete logger;
}

// Made before the thread's first line, so destroyed after everything that lines leave behind in the thread.
struct Farewell {
    ~Farewell() { Talker::Say("0 1000"); }
};

TEST(Logger, ManyThreadsLoseNoLineAndKeepTheirOrder) {
    Log log;
    OnFourThreads([](int thread) {
        if (thread == 0) {
            thread_local const Farewell farewell;
            (void)farewell;
        }
        for (int i = 0; i < 1000; ++i) {
            Talker::Say(std::to_string(thread) + " " + std::to_string(i));
            if (i % 200 == 0) // let the worker go idle: a wake-up that is missed costs 10 ms, no line
                FileLogger::instance()->Drain(std::chrono::seconds(1));
        }
    });
    // Opened once more, it keeps what is queued.
    EXPECT_TRUE(FileLogger::instance()->Initialize(DIRECTORY, "test", 6, "%Y%m%d", false));
    EXPECT_EQ(Util::PopenCommand("ls -l /proc/$PPID/fd | grep -c " + DIRECTORY), "1\n"); // one for all
    int next[4] = {};
    for (const std::string& message : log.Messages())
        EXPECT_EQ(message.substr(6), std::to_string(next[message[4] - '0']++));
    EXPECT_EQ(std::set<int>(next, next + 4), std::set<int>({1000, 1001}));
}

} // namespace
