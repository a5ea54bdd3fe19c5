// Texts, commands, files and system queries.
#include "common/Util.h"

#include <sys/time.h>

#include "common/Constants.h"
#include "tests/support/Support.h"

using namespace qz::common;
using namespace support;

namespace {

TEST(Commands, LinesAsTheyAre) {
    const std::pair<const char*, std::string> rows[] = {
        {"printf 'one\\ntwo\\n'", "one\n"},
        {"printf 'a\\0b'", "a"},
        {"no_such_command 2>/dev/null", ""},
        {"head -c 3000 /dev/zero | tr '\\0' x", std::string(1023, 'x')}};
    for (const auto& [command, line] : rows)
        EXPECT_EQ(Util::PopenCommand(command), line) << command;
    EXPECT_EQ(Joined(Util::PopenListCommand("printf 'one\\n\\nlast'")), "one\n; \n; last");
    EXPECT_EQ(Util::PopenNetworkCommand("printf 'a\\nmipi inform b\\nc\\n'"), "a\nmipi inform b\n");
    EXPECT_EQ(Util::PopenNetworkCommand("printf 'a\\nb'"), "a\nb");

    // A signal does not cut a line.
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often{{0, 10000}, {0, 10000}}, never{};
    setitimer(ITIMER_REAL, &often, nullptr);
    EXPECT_EQ(Util::PopenCommand("printf o; sleep 0.2; echo ne"), "one\n");
    setitimer(ITIMER_REAL, &never, nullptr);
}

TEST(Text, TrimSplitReplaceAndUrls) {
    std::string text = " \t a b \n", blank = " \n\t ";
    EXPECT_EQ(&Util::Trim(text), &text);
    EXPECT_EQ(text + Util::Trim(blank), "a b");
    Texts pieces;
    Util::StringSplit("a::b::", "::", pieces);
    Util::StringSplit("whole", "", pieces);
    EXPECT_EQ(Joined(pieces), "a; b; ; whole");
    text = "aXbX";
    EXPECT_EQ(Util::ReplaceAll(text, "X", "XX"), "aXXbXX");
    EXPECT_EQ(Util::ReplaceAll(text, "", "y"), text);
    EXPECT_EQ(Util::ReplaceAll(text, text, "a"), "a"); // the text itself, as either
    EXPECT_EQ(Util::ReplaceAll(text, "a", text), "a");
    EXPECT_EQ(Util::ReplaceTrim("--a-b-", "-+") + Util::ReplaceTrim("--", "-"), "a-b-");
    EXPECT_EQ(Util::GetRemoveVirtualPath("<:..ROOT..:>/a"), "/a");
    EXPECT_EQ(Util::GetRemoveVirtualPath("x<:..ROOT..:>/a"), "x<:..ROOT..:>/a");

    const std::tuple<const char*, int, std::string> urls[] = {{"https://h", 8443, "https://h:8443/p"},
                                                              {"h", 80, "http://h/p"},
                                                              {"h", 443, "https://h/p"},
                                                              {"http://h", 443, "http://h/p"},
                                                              {"h", 8080, "http://h:8080/p"}};
    for (const auto& [host, port, url] : urls)
        EXPECT_EQ(Util::MakeRequestUrl(host, port, "/p"), url);
}

TEST(Text, Dump) {
    std::string out = "old";
    const std::string data = "0123456789abcdef\x80z";
    Util::Dump(data.data(), static_cast<int>(data.size()), out);
    EXPECT_EQ(out, "\n * Total Length:18\n"
                   "0x0000   30 31 32 33 34 35 36 37  38 39 61 62 63 64 65 66  |  01234567 89abcdef\n"
                   "0x0010   80 7A                                             |  .z\n");
    Util::Dump(nullptr, -3, out);
    EXPECT_EQ(out, "\n * Total Length:-3\n");
}

TEST(Files, DirectoriesOfEveryShape) {
    std::filesystem::current_path("/opt");
    const std::string top = "/opt/" + std::string(200, 'x'), deep = top + "/" + std::string(200, 'y') + "/z";
    for (const std::string& path :
         Texts{"/opt/a/b/c", "/opt/a/b/c", "r/s", "/opt//d//e/", "./f/./g", "h/../i", "/", deep}) {
        EXPECT_TRUE(Util::MakeDirs(path, 0755)) << path;
        EXPECT_TRUE(std::filesystem::is_directory(path)) << path;
    }
    WriteFile("/opt/file", "");
    for (const char* path : {"/opt/file", "/opt/file/x", "", "/proc/no/such"})
        EXPECT_FALSE(Util::MakeDirs(path, 0755)) << path;
    EXPECT_TRUE(Util::MakeDir("/opt/a", 0755));
    EXPECT_FALSE(Util::MakeDir("/opt/no/parent", 0755));

    Texts parts = {"old"};
    const std::pair<const char*, const char*> rows[] = {{"/opt/a//b/./c/", "opt; a; b; c"},
                                                        {"./a/b/c", "opt; a; b; c"},
                                                        {"x/../a/b/./c", "opt; a; b; c"},
                                                        {"/../../opt/a", "opt; a"},
                                                        {"", "opt"},
                                                        {".", "opt"},
                                                        {"/opt/", "opt"},
                                                        {"/../..", ""}};
    for (const auto& [path, expected] : rows)
        EXPECT_TRUE(Util::MakeRealPath(path, parts) && Joined(parts) == expected) << path << ": " << Joined(parts);
    std::filesystem::current_path(deep); // beyond the first buffer
    EXPECT_TRUE(Util::MakeRealPath("./q", parts) && parts.size() == 5);
    std::filesystem::remove_all(top);
    EXPECT_FALSE(Util::MakeRealPath("./q", parts));
}

TEST(Files, TypesAndAges) {
    Shell("cd /opt; touch file; mkfifo fifo; ln -s /opt link");
    FileObjectType type = FileObjectType::SOCKET;
    EXPECT_FALSE(Util::GetFileType("/opt/missing", type));
    EXPECT_EQ(type, FileObjectType::SOCKET);
    const std::pair<const char*, int> rows[] = {
        {"/opt/file", 0}, {"/opt", 1}, {"/opt/link", 2}, {"/dev/null", 3}, {"/opt/fifo", 5}};
    for (const auto& [path, expected] : rows) {
        EXPECT_TRUE(Util::GetFileType(path, type));
        EXPECT_EQ(static_cast<int>(type), expected) << path;
        EXPECT_EQ(Util::IsDirectory(path), expected == 1) << path;
    }
    long seconds = 5;
    EXPECT_FALSE(Util::GetFileChangeDuration("/opt/missing", seconds));
    EXPECT_EQ(seconds, -1);
    Shell("touch -d '100 seconds ago' /opt/file");
    EXPECT_TRUE(Util::GetFileChangeDuration("/opt/file", seconds));
    EXPECT_TRUE(seconds >= 100 && seconds < 130) << seconds;
}

TEST(System, Versions) {
    EXPECT_EQ(Util::GetVersion(VersionType::BUILD_FIRST_HALF), "");
    Util::MakeDirs("/opt/tormel/plinta", 0755);
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
    EXPECT_FALSE(Util::GetDiskSpace("/no/such/mount", total, used, available));
    EXPECT_EQ(total, -1);
    ASSERT_TRUE(Util::GetDiskSpace("/opt", total, used, available));
    EXPECT_TRUE(total > 0 && used + available <= total);
    EXPECT_EQ(Util::GetTimeStr().substr(0, 10) + "\n", Util::PopenCommand("date +%F"));
    const auto then = std::chrono::system_clock::now() - std::chrono::milliseconds(1500);
    const long long difference = Util::GetTimeDiffMilliSec(then);
    EXPECT_TRUE(difference >= 1500 && difference < 11500) << difference;
    // A stand-in, as a bare system has none.
    Shell("printf '#!/bin/sh\\necho \"Description: Thing $1\"\\n' >/opt/lsb_release; chmod 755 /opt/lsb_release");
    setenv("PATH", ("/opt:" + std::string(getenv("PATH"))).c_str(), 1);
    EXPECT_EQ(Util::LsbRelease('d'), "Thing -d");
    EXPECT_EQ(Util::LsbRelease(0), "Thing");
}

TEST(System, CloseAllLeavesTheStandardDescriptors) {
    const int high = fcntl(0, F_DUPFD, 500);
    Util::CloseAllFDsProcess();
    for (const int fd : {0, 1, 2, 3, high})
        EXPECT_EQ(fcntl(fd, F_GETFD) != -1, fd < 3) << fd;
}

} // namespace
