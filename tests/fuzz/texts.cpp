// Texts: whatever comes into the character conversions, what goes out is valid and comes back as it is; any signature
// gives a function field without a blank.
#include <cstdlib>
#include <cstring>

#include "common/FileLogger.h"
#include "common/HelperChar.h"

using qz::common::HelperChar;

namespace {

template <typename Char>
std::basic_string<Char> As(const char* data, size_t size) {
    std::basic_string<Char> text(size / sizeof(Char), Char());
    memcpy(text.data(), data, text.size() * sizeof(Char));
    return text;
}

void ComesBack(const std::string& utf8) {
    std::u16string units(utf8.size() + 1, u'x');
    HelperChar::UTF8toWinWideChar(utf8.c_str(), units.data());
    if (HelperChar::LinuxWideCharToUTF8(HelperChar::UTF8toLinuxWideChar(utf8.c_str()).c_str()) != utf8 ||
        HelperChar::WinWideChartoUTF8(units.c_str()) != utf8)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const char* data, size_t size) {
    const std::string bytes(data, size);
    if (qz::common::className(bytes).find(' ') != bytes.npos)
        abort();
    ComesBack(HelperChar::LinuxWideCharToUTF8(HelperChar::UTF8toLinuxWideChar(bytes.c_str()).c_str()));
    ComesBack(HelperChar::LinuxWideCharToUTF8(As<wchar_t>(data, size).c_str()));
    ComesBack(HelperChar::WinWideChartoUTF8(As<char16_t>(data, size).c_str()));
    HelperChar::MbstrToWstr(bytes.c_str());
    HelperChar::WcstrToStr(As<wchar_t>(data, size).c_str());
    return 0;
}
