#pragma once

#include <future>

#include "capture/Capture.h"
#include "capture/Config.h"
#include "tests/support/Support.h"
#include "xenc/simulator/simulator.h"

// An engine that was not used yet, closed with the object; the simulator at its beginning.
struct Bench {
    explicit Bench(int level = 6) : log(level) {
        xenc_sim_reset();
        qz::capture::Config::instance()->SetScreenMode(0);
    }
    ~Bench() { capture.Stop(); }
    support::Appliance appliance;
    support::Log log;
    qz::capture::Capture capture;
};

// A session of the engine on a thread of its own, ended with the object.
class RunningSession : public Bench {
public:
    RunningSession() { EXPECT_TRUE(log.Logs("INF Initialize succeed")); }
    ~RunningSession() {
        capture.OnSignalEvent(SIGTERM, -1);
        EXPECT_EQ(m_Result.get(), 1);
    }
    bool Ended(int milliseconds) {
        return m_Result.wait_for(std::chrono::milliseconds(milliseconds)) == std::future_status::ready;
    }
    // Writes a command and waits for the line that it causes.
    bool Command(const std::string& command, const std::string& line) {
        const int before = log.Count(line);
        support::Appliance::Command(command);
        return support::Eventually([&] { return log.Count(line) > before; });
    }

private:
    // Once the base is there, with the simulator reset.
    std::future<int> m_Result = std::async(std::launch::async, [this] { return capture.Run(); });
};
