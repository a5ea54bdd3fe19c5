// Character conversions.  Tested in tests/common/LibraryTestText.cpp.
#include "common/HelperChar.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace qz::common {

namespace {

constexpr uint32_t REPLACEMENT = 0xFFFD;
constexpr uint32_t LAST_CODE_POINT = 0x10FFFF;
constexpr auto INVALID =
    static_cast<size_t>(-1); // what the C library's conversions return for what they cannot convert

bool IsHighSurrogate(uint32_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
bool IsLowSurrogate(uint32_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

void AppendUtf8(std::string& out, uint32_t c) {
    if (c > LAST_CODE_POINT || IsHighSurrogate(c) || IsLowSurrogate(c))
        c = REPLACEMENT;
    const auto add = [&out](uint32_t byte) { out += static_cast<char>(static_cast<unsigned char>(byte)); };
    if (c < 0x80) {
        add(c);
    } else if (c < 0x800) {
        add(0xC0 | c >> 6);
        add(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        add(0xE0 | c >> 12);
        add(0x80 | (c >> 6 & 0x3F));
        add(0x80 | (c & 0x3F));
    } else {
        add(0xF0 | c >> 18);
        add(0x80 | (c >> 12 & 0x3F));
        add(0x80 | (c >> 6 & 0x3F));
        add(0x80 | (c & 0x3F));
    }
}

// The next character of a zero-terminated text that has not ended, or U+FFFD for a maximal invalid piece; moves on
// behind it.
uint32_t NextUtf8(const unsigned char*& at) {
    const unsigned char lead = *at++;
    if (lead < 0x80)
        return lead;
    int more = 0;
    // The second byte's range shuts out overlong forms, surrogates and what lies above the last code point.
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        more = 1;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        more = 2;
        low = lead == 0xE0 ? 0xA0 : low;
        high = lead == 0xED ? 0x9F : high;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        more = 3;
        low = lead == 0xF0 ? 0x90 : low;
        high = lead == 0xF4 ? 0x8F : high;
    } else {
        return REPLACEMENT;
    }
    uint32_t c = lead & (0x3F >> more);
    for (; more > 0; --more) {
        if (*at < low || *at > high) // the terminating zero included
            return REPLACEMENT;
        c = c << 6 | (*at++ & 0x3F);
        low = 0x80;
        high = 0xBF;
    }
    return c;
}

} // namespace

std::string HelperChar::LinuxWideCharToUTF8(const wchar_t* text) {
    std::string out;
    for (; text && *text != 0; ++text)
        AppendUtf8(out, static_cast<uint32_t>(*text));
    return out;
}

std::wstring HelperChar::UTF8toLinuxWideChar(const char* text) {
    std::wstring out;
    const auto* at = reinterpret_cast<const unsigned char*>(text);
    while (at && *at != 0)
        out += static_cast<wchar_t>(NextUtf8(at));
    return out;
}

std::string HelperChar::WinWideChartoUTF8(const char16_t* text) {
    std::string out;
    while (text && *text != 0) {
        uint32_t c = *text++;
        if (IsHighSurrogate(c) && IsLowSurrogate(*text))
            c = 0x10000 + ((c - 0xD800) << 10) + (*text++ - 0xDC00U);
        AppendUtf8(out, c);
    }
    return out;
}

int HelperChar::UTF8toWinWideChar(const char* text, char16_t* out) {
    if (!out)
        return 0;
    char16_t* end = out;
    const auto* at = reinterpret_cast<const unsigned char*>(text);
    while (at && *at != 0) {
        const uint32_t c = NextUtf8(at);
        if (c > 0xFFFF) {
            *end++ = static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10));
            *end++ = static_cast<char16_t>(0xDC00 + (c & 0x3FF));
        } else {
            *end++ = static_cast<char16_t>(c);
        }
    }
    *end = 0;
    return static_cast<int>(end - out);
}

std::wstring HelperChar::MbstrToWstr(const char* text) {
    if (!text)
        return L"";
    std::wstring out(strlen(text), L'\0'); // no byte makes more than one character
    mbstate_t state{};
    const size_t length = mbsrtowcs(&out[0], &text, out.size(), &state);
    out.resize(length == INVALID ? 0 : length);
    return out;
}

std::string HelperChar::WcstrToStr(const wchar_t* text) {
    if (!text)
        return "";
    std::string out(wcslen(text) * MB_CUR_MAX, '\0');
    mbstate_t state{};
    const size_t length = wcsrtombs(&out[0], &text, out.size(), &state);
    out.resize(length == INVALID ? 0 : length);
    return out;
}

} // namespace qz::common
