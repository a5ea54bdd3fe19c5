#pragma once

#include <signal.h>

#include <chrono>
#include <future>

#include <gtest/gtest.h>

#include "capture/Capture.h"
#include "tests/support/Support.h"

// An appliance with a session of the engine on a thread of its own, ended with the object.
class RunningSession {
public:
    RunningSession() {
        EXPECT_TRUE(support::Eventually([this] { return m_Log.Count("INF Initialize succeed") == 1; }));
    }
    ~RunningSession() {
        m_Capture.OnSignalEvent(SIGTERM, -1);
        EXPECT_EQ(m_Result.get(), 1);
        EXPECT_TRUE(m_Capture.Quiescent());
        m_Capture.Stop();
    }
    bool Ended(int milliseconds) {
        return m_Result.wait_for(std::chrono::milliseconds(milliseconds)) == std::future_status::ready;
    }
    qz::capture::Capture& operator*() { return m_Capture; }
    support::Log& GetLog() { return m_Log; }

    // Writes a command and waits for the line that it causes.
    bool Command(const std::string& command, const std::string& line) {
        const int before = m_Log.Count(line);
        support::Appliance::Command(command);
        return support::Eventually([&] { return m_Log.Count(line) > before; });
    }

private:
    support::Appliance m_Appliance;
    support::Log m_Log;
    qz::capture::Capture m_Capture;
    std::future<int> m_Result = std::async(std::launch::async, [this] { return m_Capture.Run(); });
};
