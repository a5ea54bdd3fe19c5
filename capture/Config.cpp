// The configuration.  Tested in tests/capture/SessionTest.cpp.
#include "capture/Config.h"

#include <cstdlib>
#include <exception>

#include "common/FileLogger.h"
#include "common/Util.h"

using qz::common::Util;

namespace qz::capture {

namespace {

constexpr const char* RULER = "***********************************************************\n";

} // namespace

std::atomic<Config*> Config::m_Instance{nullptr};

Config* Config::instance() {
    Config* config = m_Instance;
    if (!config) {
        config = new Config();
        m_Instance = config;
    }
    return config;
}

bool Config::GetEnvString(const std::string& name, std::string& value) {
    const char* text = getenv(name.c_str());
    if (!text)
        return false;
    value = text;
    return !Util::Trim(value).empty();
}

bool Config::GetEnvInteger(const std::string& name, int& value) {
    std::string text;
    if (!GetEnvString(name, text))
        return false;
    try {
        value = std::stoi(text);
        return true;
    } catch (const std::exception& error) {
        value = 0;
        QZ_LOG(DBG, error.what());
        return false;
    }
}

bool Config::ReadSystemConfiguration() {
    QZ_LOG(DBG, "load from system environment configuration.");
    int mode = m_ScreenMode;
    const bool read = GetEnvInteger("QZ_SCREEN_MODE", mode);
    m_ScreenMode = mode;
    return read;
}

void Config::Print() {
    QZ_LOG(DBG, '\n' << RULER << "* Configuration\n"
                     << RULER << RULER << "* Screen\n"
                     << RULER << " - QZ_SCREEN_MODE = " << m_ScreenMode << "\n\n");
}

} // namespace qz::capture
