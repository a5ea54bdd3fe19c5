#pragma once

#include <string>
#include <utility>
#include <vector>

#include "control/ExitStatus.h"

namespace qz::control {

// An answer: lines for a person, named values for a script.
class Report {
public:
    ExitStatus status = SUCCESS;

    void Line(const std::string& line) { m_Lines += line + "\n"; }
    void Text(const std::string& name, const std::string& value);
    void Number(const std::string& name, double value);
    void Flag(const std::string& name, bool value) { m_Values.emplace_back(name, value ? "true" : "false"); }

    const std::string& ForPerson() const { return m_Lines; }
    std::string ForScript() const; // one JSON object, with a line end

private:
    std::string m_Lines;
    std::vector<std::pair<std::string, std::string>> m_Values; // names, and values as JSON has them
};

} // namespace qz::control
