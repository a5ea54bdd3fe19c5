// Tested in tests/common/LibraryTestText.cpp.
#include "common/Json.h"

#include <cstdio>

#include "common/HelperChar.h"

namespace qz::common {

std::string JsonText(const std::string& text) {
    const std::string valid = HelperChar::LinuxWideCharToUTF8(HelperChar::UTF8toLinuxWideChar(text.c_str()).c_str());
    std::string json = "\"";
    for (const char c : valid) {
        char escaped[sizeof "\\u0000"];
        if (c == '"' || c == '\\')
            json += std::string("\\") + c;
        else if (static_cast<unsigned char>(c) < 0x20) {
            snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
            json += escaped;
        } else
            json += c;
    }
    return json + "\"";
}

} // namespace qz::common
