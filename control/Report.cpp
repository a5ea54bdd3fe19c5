// Answers.  Tested in tests/control/ControlTest.cpp.
#include "control/Report.h"

#include <cstdio>

#include "common/Json.h"

using qz::common::JsonText;

namespace qz::control {

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
