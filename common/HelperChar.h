#pragma once

#include <string>

namespace qz::common {

// Character conversions.  Static, no state.  A null text gives an empty one.
//
// The Unicode conversions replace each maximal invalid piece by U+FFFD: what can begin a UTF-8 character but does not
// go on as one, every other stray byte, a lone surrogate, a number above 0x10FFFF.
//
// Threads: any thread; the last two read the process's locale, which nobody may be setting meanwhile.
class HelperChar {
public:
    // 4-byte characters to UTF-8 and back.
    static std::string LinuxWideCharToUTF8(const wchar_t* text);
    static std::wstring UTF8toLinuxWideChar(const char* text);

    // UTF-16 to UTF-8 and back.  The second writes to the caller's buffer, ends it with a zero unit and returns the
    // number of units before that.  A buffer of strlen(text) + 1 units always suffices.  A null buffer gives 0.
    static std::string WinWideChartoUTF8(const char16_t* text);
    static int UTF8toWinWideChar(const char* text, char16_t* out);

    // Through the current locale's multibyte encoding; empty when the locale cannot convert the whole text.
    static std::wstring MbstrToWstr(const char* text);
    static std::string WcstrToStr(const wchar_t* text);
};

} // namespace qz::common
