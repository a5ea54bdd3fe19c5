// The command pipe task.  Tested in tests/capture/CommandsTest.cpp and tests/daemon.
#include "capture/Capture.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <thread>

#include "capture/SignalHandler.h"
#include "common/Constants.h"
#include "common/FileLogger.h"

using qz::common::CAPTURE_FIFO_PATH;
using qz::common::FilePtr;
using qz::common::UniqueFd;
using namespace std::chrono_literals;

namespace qz::capture {

namespace {

constexpr std::chrono::milliseconds SELECT_LIMIT = 10s;
constexpr std::chrono::milliseconds WITHOUT_WAKE_UP = 100ms; // how often the session's end is looked for then
constexpr auto IDLE_LIMIT = 10s;                             // in whole seconds: the eleventh is over it
constexpr auto PASS_PAUSE = 10ms;

// The longest command.  Reading no further keeps two commands that were written in one go apart.
constexpr size_t COMMAND_LENGTH = 11;

const std::string COMMAND_END = "capture_end";
const std::string COMMAND_RUN = "capture_run";
const std::string COMMAND_SCREEN_MODE = "screenMode";

// What the next chunk of the pipe holds, up to the first zero byte; empty at the end of file and on an error.
std::string ReadCommand(int pipe) {
    char buffer[COMMAND_LENGTH + 1] = {};
    (void)!read(pipe, buffer, COMMAND_LENGTH);
    return buffer;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

} // namespace

void Capture::taskMdCapture() {
    SignalHandler::blockInThisThread(); // a handler would make select fail, and that would end the session
    m_LastSuccess = std::chrono::system_clock::now();

    FilePtr pipe;
    struct stat status {};
    if (stat(CAPTURE_FIFO_PATH.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) {
        QZ_LOG(ERR, "FIFO is invalid");
        unlink(CAPTURE_FIFO_PATH.c_str());
    } else {
        UniqueFd fd(open(CAPTURE_FIFO_PATH.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        if (fd.Valid()) {
            pipe.reset(fdopen(fd.Get(), "r"));
            // The stream's descriptor now, or, without a stream, left open: writers then see a reader as long as the
            // session goes on without this task.
            (void)fd.Release();
            if (!pipe) {
                QZ_LOG(ERR, "FIFO open failed");
                return;
            }
        }
    }

    // Without a pipe that select can watch no command can ever come: the session ends.
    if (pipe && fileno(pipe.get()) < FD_SETSIZE && m_EndEvent.Get() < FD_SETSIZE)
        ServePipe(fileno(pipe.get()));
    pipe.reset();
    EndSession();
}

void Capture::ServePipe(int pipe) {
    while (m_Running && m_XEncInit && m_MdInit && m_MdStart) {
        const int ready = WaitForCommand(pipe);
        if (ready == -1) {
            PublishFailurePicture();
            QZ_LOG(ERR, "FIFO select failed");
            return;
        }
        if (!m_Running)
            return; // woken by the session's end
        if (ready == 0) {
            QZ_LOG(WRN, "FIFO select timeout");
        } else if (!Dispatch(ReadCommand(pipe))) {
            return;
        }

        // By the system's clock, as the programs that write the commands count their ten seconds: when it is set, both
        // sides see the same.
        const auto idle = std::chrono::system_clock::now() - m_LastSuccess;
        if (std::chrono::duration_cast<std::chrono::seconds>(idle) > IDLE_LIMIT) {
            QZ_LOG(ERR, "no requests for 10sec");
            return;
        }
        std::this_thread::sleep_for(PASS_PAUSE); // a pipe at its end of file stays readable
    }
}

int Capture::WaitForCommand(int pipe) {
    // In one go, unless the system had no eventfd to wake this wait with.
    const auto slice = m_EndEvent.Valid() ? SELECT_LIMIT : WITHOUT_WAKE_UP;
    int ready = 0;
    for (auto left = SELECT_LIMIT; ready == 0 && left.count() > 0 && m_Running; left -= slice) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(pipe, &set);
        if (m_EndEvent.Valid())
            FD_SET(m_EndEvent.Get(), &set);
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(slice);
        const std::chrono::microseconds rest = slice - seconds;
        timeval timeout{static_cast<time_t>(seconds.count()), static_cast<suseconds_t>(rest.count())};
        ready = select(std::max(pipe, m_EndEvent.Get()) + 1, &set, nullptr, nullptr, &timeout);
    }
    return ready;
}

bool Capture::Dispatch(const std::string& command) {
    if (Contains(command, COMMAND_END)) {
        QZ_LOG(INF, "end the thread");
        return false;
    }
    if (Contains(command, COMMAND_RUN)) {
        if (XEncCapture())
            m_LastSuccess = std::chrono::system_clock::now();
        else
            PublishFailurePicture();
    } else if (Contains(command, COMMAND_SCREEN_MODE)) {
        ChangeScreenMode(command.substr(command.find(COMMAND_SCREEN_MODE) + COMMAND_SCREEN_MODE.size()));
    }
    return true;
}

void Capture::ChangeScreenMode(const std::string& argument) {
    try {
        const int mode = std::stoi(argument);
        if (mode < 0 || mode > 3)
            QZ_LOG(ERR, "Invalid screenMode number: " << argument);
        else
            resetScreenMode(mode);
    } catch (const std::invalid_argument&) {
        QZ_LOG(ERR, "Invalid screenMode: " << argument);
    } catch (const std::out_of_range&) {
        QZ_LOG(ERR, "screenMode out of range: " << argument);
    }
}

} // namespace qz::capture
