#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace qz::capture {

// The daemon's one run-time setting, the screen mode: 0 to 3 quarter turns of the input.  No range is imposed here.
//
// Threads: instance is first called on the main thread before there are others; the screen mode may be read and set on
// any thread.
class Config {
public:
    // Made on the first call and never deleted.
    static Config* instance();
    virtual ~Config() = default;

    // The variable's text, trimmed; whether it is set and not blank.  An unset variable leaves value as it was.
    bool GetEnvString(const std::string& name, std::string& value);

    // The variable as a decimal number, as std::stoi reads it.  An unset or blank variable leaves value as it was; a
    // text that is no number, or does not fit, sets it to 0.  Both are false.
    bool GetEnvInteger(const std::string& name, int& value);

    // Reads QZ_SCREEN_MODE; false when the screen mode did not come from it.
    bool ReadSystemConfiguration();

    // Writes the configuration into the log, as one record of several lines.
    void Print();

    int32_t ScreenMode() const { return m_ScreenMode; }
    void SetScreenMode(int32_t mode) { m_ScreenMode = mode; }

private:
    Config() = default;

    static std::atomic<Config*> m_Instance;
    std::atomic<int32_t> m_ScreenMode{0};
};

} // namespace qz::capture
