#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "xenc/simulator/CallRecord.h"
#include "xenc/simulator/ControlInput.h"
#include "xenc/simulator/Delivery.h"
#include "xenc/simulator/PictureSource.h"
#include "xenc/xenc.h"

namespace qz::xenc {

// Log levels of the library: the daemon keeps the first and drops the second.
constexpr int LOG_STEP = 5;
constexpr int LOG_DETAIL = 4;

// How far the order of the calls has come; bits, so that a call can name every stage in which it is allowed.
enum Stage : unsigned {
    STAGE_CLOSED = 1,
    STAGE_OPEN = 2,    // after kt_init
    STAGE_READY = 4,   // after kt_md_init
    STAGE_STARTED = 8, // after kt_md_start
    STAGE_BUSY = 16    // inside kt_init or kt_uninit: no other call is allowed
};

// A callback together with its user pointer, both borrowed from the program.
template <typename Function>
struct Registration {
    Function function = nullptr;
    void* user = nullptr;
};

// What the program has set since kt_init.
struct Settings {
    int degrees = 0; // of the rotation
    Registration<kt_sys_event_callback> onSysEvent;
    Registration<kt_md_event_callback> onMdEvent;
    Registration<kt_md_state_callback> onState;
    kt_md_log_callback onLog = nullptr;
};

// The encoder session behind the kt_ functions: the order of the calls, and what it reports.
//
// Threads: any thread may call everything.  No lock is held while a callback runs, so callbacks may call everything
// too; only Close and Reset are refused there, since they wait for the callback to end.
class Session {
public:
    using Effect = std::function<void(Settings&)>;

    // Never destroyed: a program may end while the library is open and its thread still at work.
    static Session& Get();

    // A call of a kt_ function: recorded, then refused (false, with a log line) when it is to fail or not in one of the
    // stages.  Otherwise the effect takes place, under the lock.
    bool Call(const char* function, const std::string& arguments, unsigned stages, const Effect& effect = {});
    // The same for a call that leads from one stage to another and reports that.
    bool Move(const char* function, const std::string& arguments, unsigned from, Stage to,
              const std::vector<Notice>& reports);

    // kt_init, kt_uninit and kt_md_capture.
    bool Open(int mode);
    bool Close();
    bool Capture(const std::string& path);

    // Queues a callback.  False when the library is not open.
    bool Notify(Notice notice) { return m_Delivery.Post(std::move(notice)); }
    // A log line; kept for later while there is no log function.
    void Log(int level, const std::string& text);
    void Flush() { m_Delivery.Flush(); }

    // Carries out a control line.  False when it is wrong, which the log then explains.
    bool Control(const std::string& line);
    CallRecord& Calls() { return m_Calls; }
    PictureSource& Pictures() { return m_Pictures; }
    void Reset();

private:
    Session() = default;

    // With the lock held.
    void SetStage(Stage stage);
    void LogLocked(int level, const std::string& text);

    // Without the lock.
    bool StageLasts(uint64_t stageCount, std::chrono::milliseconds time);
    void End(); // STAGE_BUSY to STAGE_CLOSED
    void ReadEnvironment();
    void Deliver(const Notice& notice);

    // Guards the fields down to the blank line.  The locks of the objects below it may be taken while it is held, never
    // the other way round.
    std::mutex m_Lock;
    std::condition_variable m_StageChanged; // a slow capture waits for it
    Stage m_Stage = STAGE_CLOSED;
    uint64_t m_StageCount = 0; // tells a restarted encoder from one that never stopped
    Settings m_Settings;
    std::vector<Notice> m_WaitingLog; // lines from before there was a log function

    CallRecord m_Calls;
    PictureSource m_Pictures;
    ControlInput m_Control; // Open and End while STAGE_BUSY, then the delivery thread
    Delivery m_Delivery;
};

} // namespace qz::xenc
