// Tested in tests/control/ControlTest.cpp.
#include "common/Json.h"

#include <cstdio>

namespace qz::common {

std::string JsonText(const std::string& text) {
    std::string json = "\"";
    for (const char c : text) {
        char escaped[8];
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
