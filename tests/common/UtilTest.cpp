// Texts, commands, files and system queries.
#include "common/Util.h"
#include "common/Constants.h"
#include "common/FileAccess.h"
#include "tests/support/Support.h"

using namespace qz::common;
using namespace support;

namespace {

TEST(Commands, LinesAsTheyAre) {
    EXPECT_EQ(Util::PopenCommand("printf 'one\\ntwo\\n'"), "one\n");
    EXPECT_EQ(Util::PopenCommand("printf 'a\\0b'") + Util::PopenCommand("no_such_command 2>/dev/null"), "a");
    EXPECT_EQ(Util::PopenCommand("head -c 3000 /dev/zero | tr '\\0' x").size(), 1023U);
    EXPECT_EQ(Util::PopenListCommand("printf 'one\\n\\nlast'"), Texts({"one\n", "\n", "last"}));
    EXPECT_EQ(Util::PopenNetworkCommand("printf 'a\\nmipi inform b\\nc\\n'"), "a\nmipi inform b\n");
    EXPECT_EQ(Util::PopenNetworkCommand("printf 'a\\nb'"), "a\nb");
    // A signal that interrupts the reading does not cut the line.
    sysv_signal(SIGALRM, [](int) {});
    ualarm(100000, 0);
    EXPECT_EQ(Util::PopenCommand("printf o; sleep 0.2; echo ne"), "one\n");
}

TEST(Files, AreReadAndWrittenWhole) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const auto interruptSoon = [] {
        sysv_signal(SIGALRM, [](int) {});
        ualarm(20000, 0);
    };
    interruptSoon(); // the reading
    std::thread writer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(WriteAll(ends[1], "abc", 3), 3U);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(write(ends[1], "de", 2), 2);
    });
    char read[8] = {};
    EXPECT_EQ(ReadSome(ends[0], read, 2), 2);
    EXPECT_EQ(ReadAll(ends[0], read + 2, 2), 2U);
    writer.join();
    const std::string much(100000, 'x'); // more than the pipe takes
    fcntl(ends[1], F_SETFL, O_NONBLOCK);
    const size_t all = 1 + WriteAll(ends[1], much.data(), much.size()) + much.size();
    EXPECT_LT(all, 2 * much.size());
    fcntl(ends[1], F_SETFL, 0);
    interruptSoon(); // the writing
    std::thread reader([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        std::string text(all, ' ');
        EXPECT_EQ(ReadAll(ends[0], &text[0], all), all);
        EXPECT_EQ(text.substr(0, 2), "ex");
    });
    EXPECT_EQ(WriteAll(ends[1], much.data(), much.size()), much.size());
    reader.join();
    EXPECT_STREQ(read, "abcd");
    WriteFile("/opt/text", "0123456789");
    EXPECT_EQ(Joined({ReadText("/opt/text"), ReadText("/opt/text", 3), ReadText("/opt/none")}), "0123456789; 012; ");
}

TEST(Text, TrimSplitReplaceAndUrls) {
    std::string text = " \t a b \n", blank = " \n\t ", tight = "c";
    EXPECT_EQ(Util::Trim(text) + Util::Trim(blank) + Util::Trim(tight), "a bc");
    EXPECT_EQ(text, "a b");
    Texts pieces;
    Util::StringSplit("a::b::", "::", pieces);
    Util::StringSplit("whole", "", pieces);
    EXPECT_EQ(pieces, Texts({"a", "b", "", "whole"}));
    text = "aXbX";
    EXPECT_EQ(Util::ReplaceAll(text, "X", "XX"), "aXXbXX");
    EXPECT_EQ(Util::ReplaceAll(text, "", "y") + text, "aXXbXXaXXbXX");
    EXPECT_EQ(Util::ReplaceAll(text, text, "a"), "a"); // the text itself, as either
    EXPECT_EQ(Util::ReplaceAll(text, "a", text), "a");
    EXPECT_EQ(Util::ReplaceTrim("--a-b-", "-+") + Util::ReplaceTrim("--", "-"), "a-b-");
    EXPECT_EQ(Joined({Util::GetRemoveVirtualPath("<:..ROOT..:>/a"), Util::GetRemoveVirtualPath("x<:..ROOT..:>")}),
              "/a; x<:..ROOT..:>");
    EXPECT_EQ(Joined({Util::MakeRequestUrl("https://h", 8443, "/p"), Util::MakeRequestUrl("h", 80, "/p"),
                      Util::MakeRequestUrl("h", 443, ""), Util::MakeRequestUrl("http://h", 443, "/p")}),
              "https://h:8443/p; http://h/p; https://h; http://h/p");

    const std::string data = "0123456789abcdef\x80\x01";
    Util::Dump(data.data(), static_cast<int>(data.size()), text);
    EXPECT_EQ(text, "\n * Total Length:18\n"
                    "0x0000   30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  |  01234567 89abcdef\n"
                    "0x0010   80 01                                             |  ..\n");
    Util::Dump(data.data(), 16, text);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3); // one line of bytes
    Util::Dump(nullptr, -3, text);
    EXPECT_EQ(text, "\n * Total Length:-3\n");
}

TEST(Files, DirectoriesOfEveryShape) {
    std::filesystem::current_path("/opt");
    const std::string deep = "/opt/" + std::string(200, 'x') + "/" + std::string(200, 'y') + "/z";
    for (const std::string& path : Texts{"a/b/c", "/opt/a/b/c", "/opt//d//e/", "./f/./g", "h/../i", "/", deep})
        EXPECT_TRUE(Util::MakeDirs(path, 0755) && std::filesystem::is_directory(path)) << path;
    WriteFile("/opt/file", "");
    for (const char* path : {"/opt/file", "/opt/file/x", "", "/proc/no/such"})
        EXPECT_FALSE(Util::MakeDirs(path, 0755)) << path;
    EXPECT_TRUE(Util::MakeDir("/opt/a", 0755) && !Util::MakeDir("/opt/no/parent", 0755));

    Texts parts = {"old"};
    for (const char* path : {"/opt/a//./b/", "./a/b", "x/../a/b", "/../x/../opt/a/b"})
        EXPECT_TRUE(Util::MakeRealPath(path, parts) && Joined(parts) == "opt; a; b") << path;
    for (const char* path : {"", "."})
        EXPECT_TRUE(Util::MakeRealPath(path, parts) && Joined(parts) == "opt") << path;
    EXPECT_TRUE(Util::MakeRealPath("/../..", parts) && parts.empty());
    std::filesystem::current_path(deep); // beyond the first buffer
    EXPECT_TRUE(Util::MakeRealPath("./q", parts) && parts.size() == 5);
    std::filesystem::remove(deep);
    EXPECT_FALSE(Util::MakeRealPath("./q", parts));
}

TEST(Files, TypesAndAges) {
    Shell("cd /opt; touch -d '100 seconds ago' file; mkfifo fifo; ln -s /opt link");
    FileObjectType type = FileObjectType::SOCKET;
    EXPECT_TRUE(!Util::GetFileType("/opt/missing", type) && type == FileObjectType::SOCKET);
    const std::pair<const char*, int> rows[] = {
        {"/opt/file", 0}, {"/opt", 1}, {"/opt/link", 2}, {"/dev/null", 3}, {"/opt/fifo", 5}};
    for (const auto& [path, expected] : rows) {
        EXPECT_TRUE(Util::GetFileType(path, type) && static_cast<int>(type) == expected) << path;
        EXPECT_EQ(Util::IsDirectory(path), expected == 1) << path;
    }
    long seconds = 5;
    EXPECT_TRUE(!Util::GetFileChangeDuration("/opt/missing", seconds) && seconds == -1);
    EXPECT_TRUE(Util::GetFileChangeDuration("/opt/file", seconds) && seconds >= 100 && seconds < 130) << seconds;
}

TEST(System, Versions) {
    EXPECT_EQ(Util::GetVersion(VersionType::BUILD_FIRST_HALF), "");
    Appliance appliance;
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"1.2.3.0407\nmore", "1.2.3.07", "1.2.3.04"},
        {" 1.2.3 \n", "1.2.3", "1.2.3"},
        {"1.2.3.407", "1.2.3.", "1.2.3."},
        {"\n1.2.3.0407", "", ""},
        {"1.2.3.4.5", "1.2.3.4.5", "1.2.3.4.5"},
        {std::string(300, 'v'), std::string(256, 'v'), std::string(256, 'v')}};
    for (const auto& [file, second, first] : rows) {
        WriteFile(VERSION_FILE_PATH, file);
        EXPECT_EQ(Util::GetVersion(VersionType::BUILD_SECOND_HALF), second) << file;
        EXPECT_EQ(Util::GetVersion(VersionType::BUILD_FIRST_HALF), first) << file;
    }
}

TEST(System, Queries) {
    EXPECT_TRUE(Util::IsMounted("/opt") && !Util::IsMounted("/no/such/mount"));
    long long total = -1, used = -1, available = -1;
    EXPECT_TRUE(!Util::GetDiskSpace("/no/such/mount", total, used, available) && total == -1);
    const Mount small("/opt", "size=1m");
    WriteFile("/opt/data", std::string(65536, 'x'));
    EXPECT_TRUE(Util::GetDiskSpace("/opt", total, used, available));
    EXPECT_EQ(std::tuple(total, used, available), std::tuple(1048576, 65536, 983040));
    EXPECT_EQ(Util::GetTimeStr().substr(0, 10) + "\n", Util::PopenCommand("date +%F"));
    const auto minuteAgo = std::chrono::system_clock::now() - std::chrono::minutes(1);
    EXPECT_NEAR(static_cast<double>(Util::GetTimeDiffMilliSec(minuteAgo)), 60000, 30000);
    // A stand-in, as a bare system has none.
    StandIn("lsb_release", "echo \"Description: Thing $1\"");
    EXPECT_EQ(Util::LsbRelease('d') + Util::LsbRelease(0), "Thing -dThing");
}

TEST(System, CloseAllLeavesTheStandardDescriptors) {
    Log log;
    const int high = fcntl(0, F_DUPFD, 500), low = dup(0);
    Util::CloseAllFDsProcess();
    EXPECT_EQ(log.Messages(), Texts());
    for (const int fd : {0, 1, 2, low, high})
        EXPECT_EQ(fcntl(fd, F_GETFD) != -1, fd < 3) << fd;
}

} // namespace
