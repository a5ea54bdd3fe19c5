// Answers.  Tested in tests/control/ControlTest.cpp.
#include "control/Report.h"

#include <cstdio>

namespace qz::control {

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

void Report::Text(const std::string& name, const std::string& value) {
    m_Values.emplace_back(name, JsonText(value));
}

void Report::Number(const std::string& name, double value) {
    char text[32];
    snprintf(text, sizeof text, "%.12g", value);
    m_Values.emplace_back(name, text);
}

std::string Report::ForScript() const {
    std::string json;
    for (const auto& [name, value] : m_Values)
        json += (json.empty() ? "{" : ", ") + JsonText(name) + ": " + value;
    return json + "}\n";
}

} // namespace qz::control
