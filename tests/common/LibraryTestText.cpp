// Digests, identifiers and conversions, against the system's own programs and functions.
#include <iconv.h>

#include <clocale>
#include <cstring>
#include <set>

#include "common/HelperChar.h"
#include "common/HelperPlatfrom.h"
#include "common/Util.h"
#include "tests/support/Support.h"

using namespace qz::common;
using namespace support;

namespace {

TEST(Digests, AgreeWithTheSystemsPrograms) {
    using Hash = std::string (*)(const unsigned char*, unsigned, unsigned char*);
    using HashFile = bool (*)(const std::string&, std::string&);
    const std::tuple<const char*, Hash, HashFile, int> kinds[] = {
        {"md5sum", Util::Md5Hash, Util::Md5File, 16}, {"sha256sum", Util::Sha256Hash, Util::Sha256File, 32}};
    Shell("mkfifo /opt/fifo");
    for (const auto& [program, hash, hashFile, length] : kinds) {
        SCOPED_TRACE(program);
        unsigned char digest[32];
        std::string hex;
        for (const size_t size : {0, 1, 1023, 1024, 1025, 2048, 600000}) {
            Shell("head -c " + std::to_string(size) + " /dev/urandom >/opt/data");
            const std::string data = ReadFile("/opt/data");
            const std::string line = Util::PopenCommand(program + std::string(" /opt/data"));
            const std::string expected = line.substr(0, line.find(' '));
            EXPECT_EQ(hash(reinterpret_cast<const unsigned char*>(data.data()), static_cast<unsigned>(size), digest),
                      expected);
            EXPECT_EQ(Util::ToHex(digest, length), expected);
            EXPECT_TRUE(hashFile("/opt/data", hex));
            EXPECT_EQ(hex, expected) << size;
        }
        for (const char* path : {"/opt/missing", "/opt", "/dev/zero", "/opt/fifo"})
            EXPECT_TRUE(!hashFile(path, hex = "old") && hex.empty()) << path;
        EXPECT_EQ(hash(nullptr, 1, digest), "");
    }
    EXPECT_EQ(Util::ToHex(nullptr, 5), "");
}

// Worked out by a second implementation, in another language; the bytes above 0x7F show the signs.
TEST(Digests, SuperFastHash) {
    const std::tuple<const char*, unsigned, unsigned> rows[] = {
        {"", 0, 0x00000000},       {"\x80", 1, 0x3D4CCEB7}, {"ab", 2, 0x5A9D2E85},
        {"ab\x80", 3, 0x565EB567}, {"abcd", 4, 0x09C9A4E5}, {"\xFF\xFE\xFD\xFC\xFB\xFA\xF9", 7, 0xD8D45797},
    };
    for (const auto& [data, length, hash] : rows) {
        const std::string shifted = "?" + std::string(data, length); // loads assume no alignment
        EXPECT_EQ(Util::SuperFastHash(&shifted[1], length), hash) << length;
    }
    EXPECT_EQ(Util::SuperFastHash(nullptr, 4), 0U);
}

TEST(Identifiers, FormsAndRange) {
    std::string bytes = "\xF1\x02\x03\x84\x05\x06\x07\xF8\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10";
    EXPECT_EQ(Util::FmtUuid(&bytes[0], true), "F1020384050607F8090A000000000000");
    EXPECT_EQ(Util::FmtUuid(&bytes[0], false), "F1020384-0506-07F8-090A-00000000000");
    EXPECT_EQ(Util::FmtUuid(nullptr, true), "");
    EXPECT_EQ(Util::GenerateRandGuid(true).size(), 32U);
    EXPECT_NE(Util::GenerateRandGuidMt(false), Util::GenerateRandGuidMt(false));
    const std::string random = Util::GenerateUrandGuid();
    EXPECT_TRUE(random.size() == 31 && random.find_first_not_of("0123456789ABCDEF") == random.npos) << random;
    EXPECT_NE(random, Util::GenerateUrandGuid());
    EXPECT_EQ(Util::Htonll(0x0102030405060708ULL), 0x0807060504030201ULL);
    EXPECT_EQ(Util::Ntohll(77), 77ULL << 56);

    std::set<int> seen;
    for (int i = 0; i < 400; ++i)
        seen.insert(Util::GenerateRandomRange(-2, 3));
    EXPECT_EQ(seen, std::set<int>({-2, -1, 0, 1, 2, 3}));
    EXPECT_TRUE(Util::GenerateRandomRange(5, 5) == 5 && Util::GenerateRandomRange(6, 5) == 6);
    EXPECT_NE(Util::GenerateRandomRange(INT32_MIN, INT32_MAX), Util::GenerateRandomRange(INT32_MIN, INT32_MAX));
}

// What iconv makes of the text.
template <typename Out, typename In>
Out Convert(const char* to, const char* from, const In& text) {
    const iconv_t converter = iconv_open(to, from);
    std::string out(text.size() * 8 + 8, '\0');
    char* source = const_cast<char*>(reinterpret_cast<const char*>(text.data()));
    size_t sourceLeft = text.size() * sizeof text[0];
    char* target = &out[0];
    size_t targetLeft = out.size();
    EXPECT_NE(iconv(converter, &source, &sourceLeft, &target, &targetLeft), static_cast<size_t>(-1));
    iconv_close(converter);
    return Out(reinterpret_cast<typename Out::value_type*>(&out[0]),
               (out.size() - targetLeft) / sizeof(typename Out::value_type));
}

TEST(Characters, AllPlanesAgreeWithTheSystem) {
    for (uint32_t plane = 0; plane <= 0x10; ++plane) {
        std::wstring wide;
        for (uint32_t c = plane << 16 | (plane == 0); c < (plane + 1) << 16; ++c) {
            if (c < 0xD800 || c > 0xDFFF)
                wide += static_cast<wchar_t>(c);
        }
        const auto utf8 = Convert<std::string>("UTF-8", "UTF-32LE", wide);
        const auto utf16 = Convert<std::u16string>("UTF-16LE", "UTF-32LE", wide);
        EXPECT_TRUE(HelperChar::LinuxWideCharToUTF8(wide.c_str()) == utf8) << plane;
        EXPECT_TRUE(HelperChar::UTF8toLinuxWideChar(utf8.c_str()) == wide) << plane;
        EXPECT_TRUE(HelperChar::WinWideChartoUTF8(utf16.c_str()) == utf8) << plane;
        std::u16string units(utf8.size() + 1, u'x');
        units.resize(static_cast<size_t>(HelperChar::UTF8toWinWideChar(utf8.c_str(), &units[0])));
        EXPECT_TRUE(units == utf16) << plane;
    }
}

TEST(Characters, EachMaximalInvalidPieceIsReplacedOnce) {
    // Overlong forms, a surrogate, one cut short by a character, a number too high, stray bytes, a lead before a whole
    // character, one cut short by the end.
    EXPECT_EQ(
        HelperChar::UTF8toLinuxWideChar("\xC0\xAF|\xE0\x80\xAF|\xED\xA0\x80|\xF0\x9F\x98z|\xF4\x90\x80\x80|\x80\xFF|"
                                        "\xE2\xE2\x82\xAC|\xF5|a\xE2\x82"),
        L"\xFFFD\xFFFD|\xFFFD\xFFFD\xFFFD|\xFFFD\xFFFD\xFFFD|\xFFFDz|\xFFFD\xFFFD\xFFFD\xFFFD|\xFFFD\xFFFD|"
        L"\xFFFD\x20AC|\xFFFD|a\xFFFD");
    const char16_t halves[] = {0xD800, 'z', 0xDC00, 0xD800, '|', 0xD83D, 0xDE00, 0};
    EXPECT_EQ(HelperChar::WinWideChartoUTF8(halves), "\xEF\xBF\xBDz\xEF\xBF\xBD\xEF\xBF\xBD|\xF0\x9F\x98\x80");
    const wchar_t outside[] = {0x110000, 0xD800, static_cast<wchar_t>(-1), 0};
    EXPECT_EQ(HelperChar::LinuxWideCharToUTF8(outside), "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(HelperChar::LinuxWideCharToUTF8(nullptr) + HelperChar::WinWideChartoUTF8(nullptr), "");
    EXPECT_EQ(HelperChar::UTF8toLinuxWideChar(nullptr) + HelperChar::MbstrToWstr(nullptr), L"");
    char16_t unit = u'x';
    EXPECT_TRUE(HelperChar::UTF8toWinWideChar(nullptr, &unit) == 0 && unit == 0);
    EXPECT_EQ(HelperChar::UTF8toWinWideChar("a", nullptr), 0);
}

TEST(Characters, TheLocaleDecides) {
    EXPECT_EQ(HelperChar::WcstrToStr(L"\x20AC") + HelperChar::WcstrToStr(nullptr), ""); // still "C"
    ASSERT_NE(setlocale(LC_ALL, "C.UTF-8"), nullptr);
    EXPECT_EQ(HelperChar::WcstrToStr(L"a\x20AC"), "a\xE2\x82\xAC");
    EXPECT_EQ(HelperChar::MbstrToWstr("a\xE2\x82\xAC"), L"a\x20AC");
    EXPECT_EQ(HelperChar::MbstrToWstr("\xFF"), L"");
    setlocale(LC_ALL, "C");
}

TEST(Platform, TimesAndWidths) {
    EXPECT_TRUE(HelperPlatfrom::IsLittleEndian());
    const std::pair<int, long long> times[] = {{1577836800, 132223104000000000}, {1, 116444736010000000}, {0, 0}};
    for (const auto& [seconds, ticks] : times) {
        EXPECT_EQ(HelperPlatfrom::WinFileTimeToUnixTime(ticks), seconds);
        EXPECT_EQ(HelperPlatfrom::UnixTimeToWinFileTime(seconds), ticks);
    }
    EXPECT_EQ(HelperPlatfrom::WinFileTimeToUnixTime(-5) + HelperPlatfrom::UnixTimeToWinFileTime(-5), 0);
    const wchar_t wide[] = {0x12345678, 0x9ABC};
    short narrow[2] = {1, 1};
    EXPECT_TRUE(HelperPlatfrom::UnixToWinWcharBytes(wide, 2, narrow) &&
                HelperPlatfrom::UnixToWinWcharBytes(wide, -1, narrow));
    EXPECT_EQ(narrow[0], 0x5678);
    EXPECT_FALSE(HelperPlatfrom::UnixToWinWcharBytes(nullptr, 0, narrow));
    wchar_t back[] = {0x11111111, 0x22222222};
    EXPECT_EQ(HelperPlatfrom::WinToUnixWcharBytes(narrow, 2, back), back);
    EXPECT_TRUE(back[0] == 0x11115678 && back[1] == 0x22229ABC); // the upper two bytes stay
    EXPECT_EQ(HelperPlatfrom::WinToUnixWcharBytes(narrow, 0, back), narrow);
    EXPECT_EQ(HelperPlatfrom::WinToUnixWcharBytes(narrow, 1, nullptr), nullptr);
}

} // namespace
