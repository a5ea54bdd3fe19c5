// Digests, identifiers and conversions, against the system's own programs and functions.
#include <clocale>
#include <set>

#include "common/HelperChar.h"
#include "common/HelperPlatfrom.h"
#include "common/Json.h"
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace qz::common;
using namespace support;

namespace {

TEST(Digests, AgreeWithTheSystemsPrograms) {
    Shell("mkfifo /opt/fifo");
    for (const auto& [program, hash, hashFile, length] :
         {std::tuple("md5sum", &Util::Md5Hash, &Util::Md5File, 16),
          std::tuple("sha256sum", &Util::Sha256Hash, &Util::Sha256File, 32)}) {
        unsigned char digest[32];
        std::string hex;
        for (const unsigned size : {0, 1, 1024, 600000}) {
            Shell("seq 200000 | head -c " + std::to_string(size) + " > /opt/data");
            const std::string data = ReadFile("/opt/data");
            const std::string expected = Util::PopenCommand(program + std::string(" /opt/data | tr ' ' '\\0'"));
            EXPECT_EQ(hash(reinterpret_cast<const unsigned char*>(data.data()), size, digest), expected);
            EXPECT_EQ(Util::ToHex(digest, length), expected);
            EXPECT_TRUE(hashFile("/opt/data", hex) && hex == expected) << program << size;
        }
        // The last one is a regular file whose reading fails.
        for (const char* path : {"/opt/missing", "/opt", "/dev/zero", "/opt/fifo", "/proc/self/mem"})
            EXPECT_TRUE(!hashFile(path, hex = "old") && hex.empty()) << path;
        EXPECT_TRUE(hashFile(hex = "/opt/data", hex)); // over its own path
        EXPECT_EQ(hash(nullptr, 1, digest) + Util::ToHex(nullptr, 5), "");
    }
}

// Worked out by a second implementation, in another language; the bytes above 0x7F show the signs.
TEST(Digests, SuperFastHash) {
    const std::pair<std::string, unsigned> rows[] = {
        {"", 0x00000000},       {"\x80", 0x3D4CCEB7}, {"ab", 0x5A9D2E85},
        {"ab\x80", 0x565EB567}, {"abcd", 0x09C9A4E5}, {"\xFF\xFE\xFD\xFC\xFB\xFA\xF9", 0xD8D45797}};
    for (const auto& [data, hash] : rows) {
        const std::string shifted = "-" + data; // loads assume no alignment
        EXPECT_EQ(Util::SuperFastHash(&shifted[1], static_cast<unsigned>(data.size())), hash) << data.size();
    }
    EXPECT_EQ(Util::SuperFastHash(nullptr, 4), 0U);
}

TEST(Identifiers, Forms) {
    std::string bytes(16, '\xFF');
    EXPECT_EQ(Util::FmtUuid(&bytes[0], true) + Util::FmtUuid(nullptr, true), "FFFFFFFFFFFFFFFFFFFF000000000000");
    bytes = "\x01\x02\x03\x84\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10";
    EXPECT_EQ(Util::FmtUuid(&bytes[0], false), "01020384-0506-0708-090A-00000000000");
    for (const bool compact : {true, false}) {
        EXPECT_EQ(Util::GenerateRandGuid(compact).size(), compact ? 32U : 35U);
        EXPECT_NE(Util::GenerateRandGuidMt(compact), Util::GenerateRandGuidMt(compact));
    }
    const std::string random = Util::GenerateUrandGuid();
    EXPECT_TRUE(random.size() == 31 && random.find_first_not_of("0123456789ABCDEF") == random.npos) << random;
    EXPECT_NE(random, Util::GenerateUrandGuid());
    EXPECT_EQ(Util::Htonll(0x0102030405060708ULL), 0x0807060504030201ULL);
    EXPECT_EQ(Util::Ntohll(0x0102030405060708ULL), 0x0807060504030201ULL);
}

TEST(Identifiers, RandomRange) {
    std::set<int> seen;
    for (int i = 0; i < 400; ++i)
        seen.insert(Util::GenerateRandomRange(-2, 3));
    EXPECT_EQ(seen, std::set<int>({-2, -1, 0, 1, 2, 3}));
    EXPECT_EQ(Util::GenerateRandomRange(6, 5), 6);
    EXPECT_NE(Util::GenerateRandomRange(INT32_MIN, INT32_MAX), Util::GenerateRandomRange(INT32_MIN, INT32_MAX));
}

template <typename Text>
std::string BytesOf(const Text& text) {
    return std::string(reinterpret_cast<const char*>(text.data()), text.size() * sizeof text[0]);
}

TEST(Characters, AllAgreeWithTheSystem) {
    std::wstring wide;
    for (wchar_t c = 1; c <= 0x10FFFF; ++c) {
        if (c < 0xD800 || c > 0xDFFF)
            wide += c;
    }
    WriteFile("/opt/wide", BytesOf(wide));
    Shell("cd /opt && iconv -f UTF-32LE -t UTF-8 wide > utf8 && iconv -f UTF-32LE -t UTF-16LE wide > utf16");
    const std::string utf8 = ReadFile("/opt/utf8");
    std::u16string units(utf8.size() + 1, u'x');
    units.resize(static_cast<size_t>(HelperChar::UTF8toWinWideChar(utf8.c_str(), &units[0])));
    EXPECT_TRUE(BytesOf(units) == ReadFile("/opt/utf16"));
    EXPECT_TRUE(HelperChar::WinWideChartoUTF8(units.c_str()) == utf8);
    EXPECT_TRUE(HelperChar::LinuxWideCharToUTF8(wide.c_str()) == utf8);
    EXPECT_TRUE(HelperChar::UTF8toLinuxWideChar(utf8.c_str()) == wide);
}

TEST(Characters, EachMaximalInvalidPieceIsReplacedOnce) {
    EXPECT_EQ(HelperChar::UTF8toLinuxWideChar("\xC0\xAF|\xE0\x80\xAF|\xED\xA0\x80|\xF4\x90\x80\x80|\xF5|"
                                              "\x80\xFF|\xF0\x9F\x98z|\xE2\xE2\x82\xAC|\xE2\x82"),
              L"\xFFFD\xFFFD|\xFFFD\xFFFD\xFFFD|\xFFFD\xFFFD\xFFFD|\xFFFD\xFFFD\xFFFD\xFFFD|\xFFFD|"
              L"\xFFFD\xFFFD|\xFFFDz|\xFFFD\x20AC|\xFFFD");
    EXPECT_EQ(HelperChar::WinWideChartoUTF8(u"\xD800z\xDC00\xD800"), "\xEF\xBF\xBDz\xEF\xBF\xBD\xEF\xBF\xBD");
    const wchar_t outside[] = {0x110000, 0xD800, static_cast<wchar_t>(-1), 0};
    EXPECT_EQ(HelperChar::LinuxWideCharToUTF8(outside), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(HelperChar::LinuxWideCharToUTF8(nullptr) + HelperChar::WinWideChartoUTF8(nullptr), "");
    EXPECT_EQ(HelperChar::UTF8toLinuxWideChar(nullptr) + HelperChar::MbstrToWstr(nullptr), L"");
    char16_t unit = u'x';
    EXPECT_EQ(HelperChar::UTF8toWinWideChar(nullptr, &unit) + HelperChar::UTF8toWinWideChar("a", nullptr), 0);
    EXPECT_EQ(unit, 0);
}

TEST(Characters, AreEscapedInJson) {
    EXPECT_EQ(JsonText("\"a\\b\"\n\xe9 \xc3\xa9"), "\"\\\"a\\\\b\\\"\\u000a\xef\xbf\xbd \xc3\xa9\"");
}

TEST(Characters, TheLocaleDecides) {
    setlocale(LC_ALL, "C");
    EXPECT_EQ(HelperChar::WcstrToStr(L"\x20AC") + HelperChar::WcstrToStr(nullptr), "");
    ASSERT_NE(setlocale(LC_ALL, "C.UTF-8"), nullptr);
    EXPECT_EQ(HelperChar::WcstrToStr(L"a\x20AC"), "a\xE2\x82\xAC");
    EXPECT_EQ(HelperChar::MbstrToWstr("a\xE2\x82\xAC"), L"a\x20AC");
    EXPECT_EQ(HelperChar::MbstrToWstr("\xFF"), L"");
}

TEST(Platform, TimesAndWidths) {
    EXPECT_EQ(HelperPlatfrom::WinFileTimeToUnixTime(132223104000000000), 1577836800); // 2020-01-01
    EXPECT_EQ(HelperPlatfrom::UnixTimeToWinFileTime(1577836800), 132223104000000000);
    EXPECT_EQ(HelperPlatfrom::WinFileTimeToUnixTime(1), 1240428288); // before 1970, which 32 bits cannot say
    EXPECT_EQ(HelperPlatfrom::UnixTimeToWinFileTime(1), 116444736010000000);
    EXPECT_EQ(HelperPlatfrom::WinFileTimeToUnixTime(0) + HelperPlatfrom::UnixTimeToWinFileTime(0), 0);
    const wchar_t wide[] = {0x12345678, 0x9ABC};
    short narrow[3] = {1, 1, 1};
    EXPECT_TRUE(HelperPlatfrom::UnixToWinWcharBytes(wide, 2, narrow));
    EXPECT_TRUE(HelperPlatfrom::UnixToWinWcharBytes(wide, -1, narrow) && narrow[2] == 1);
    EXPECT_FALSE(HelperPlatfrom::UnixToWinWcharBytes(nullptr, 0, narrow));
    wchar_t back[] = {0x11111111, 0x22222222, 0x33333333};
    EXPECT_EQ(HelperPlatfrom::WinToUnixWcharBytes(narrow, 2, back), back);
    EXPECT_EQ(std::wstring(back, 3), std::wstring(L"\x11115678\x22229ABC\x33333333")); // the upper two bytes stay
    EXPECT_EQ(HelperPlatfrom::WinToUnixWcharBytes(narrow, 1, back), back);
    EXPECT_EQ(HelperPlatfrom::WinToUnixWcharBytes(narrow, 0, back), narrow);
    EXPECT_EQ(HelperPlatfrom::WinToUnixWcharBytes(narrow, 1, nullptr), nullptr);
}

} // namespace
