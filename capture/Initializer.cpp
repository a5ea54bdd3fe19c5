// Start-up.  Tested in tests/daemon/DaemonTest.cpp.
#include "capture/Initializer.h"

#include <unistd.h>

#include <chrono>
#include <iostream>
#include <string>

#include "capture/EndWatch.h"
#include "capture/SignalHandler.h"
#include "common/Constants.h"
#include "common/FileLogger.h"
#include "common/PathConstants.h"
#include "common/Util.h"

using qz::common::FileLogger;
using qz::common::LOG_DIR;
using qz::common::PATH_SEPARATOR;
using qz::common::Util;
using namespace std::chrono_literals;

namespace qz::capture {

namespace {

constexpr int LOG_DIRECTORY_MODE = 0755;
constexpr int NORMAL_LEVEL = 4;
constexpr int DEBUG_LEVEL = 6;

// How long an end waits for the lines that are still queued.
constexpr auto DRAIN_LIMIT = 1s;

// How the log is opened: at the start and, when a fault strikes after its end, once more.  Never destroyed.
struct LogSettings {
    std::string directory;
    std::string name;
    int level = NORMAL_LEVEL;
};
LogSettings& logSettings = *new LogSettings;

bool OpenLog() {
    return FileLogger::instance()->Initialize(logSettings.directory, logSettings.name, logSettings.level, "%Y%m%d",
                                              false);
}

void ReopenLog() {
    (void)OpenLog();
}

std::string ProgramPath(char** argv) {
    return argv[0] ? argv[0] : "";
}

} // namespace

Initializer::Initializer(int argc, char** argv) : m_Arguments(argc, argv), m_Process(ProgramPath(argv)) {
    Initialize(argc, argv);
}

Initializer::~Initializer() {
    Cleanup();
    EndWatch::enter(EndWatch::Stage::LOG);
    SignalHandler::withLogAtRest(
        [] {
            if (FileLogger* logger = FileLogger::instance()) {
                logger->Drain(DRAIN_LIMIT);
                delete logger;
            }
        },
        ReopenLog);
    EndWatch::enter(EndWatch::Stage::EXIT);
}

bool Initializer::Initialize(int /*argc*/, char** /*argv*/) {
    if (m_Arguments.Stop())
        m_Process.FileKill();
    else if (m_Process.Init(true)) // first: a refused second start leaves the running instance's log alone
        m_Initialized = StartLog();
    return m_Initialized;
}

bool Initializer::StartLog() {
    logSettings.name = m_Process.Name();
    logSettings.directory = LOG_DIR + PATH_SEPARATOR + "agent";
    Util::MakeDirs(logSettings.directory, LOG_DIRECTORY_MODE); // a failure shows when the file does not open
    logSettings.level = m_Arguments.Debug() ? DEBUG_LEVEL : NORMAL_LEVEL;
    const bool open = OpenLog();
    if (!open) // despite its words the daemon does not go on without a log
        std::cout << " * initialize log failed. not write logs." << std::endl;
    return open;
}

void Initializer::Cleanup() {
    m_Initialized = false;
}

// Both are for ends that write no counters; tests/daemon looks at them from outside.  GCOV_EXCL_START
void Initializer::Release() {
    m_Process.Release();
}

void Initializer::Abandon(int status) {
    FileLogger::instance()->Drain(DRAIN_LIMIT);
    EndWatch::enter(EndWatch::Stage::EXIT);
    Release();
    SignalHandler::yieldToFault();
    _exit(status);
}
// GCOV_EXCL_STOP

} // namespace qz::capture
