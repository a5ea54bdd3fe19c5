#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "xenc/simulator/Control.h"
#include "xenc/simulator/Delivery.h"
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

// What is wrong with the pictures on request.
struct CaptureFaults {
    int delayMilliseconds = 0;
    int keptBytes = -1; // of every picture; -1: all
};

// A callback together with its user pointer, both borrowed from the program.
template <typename Function>
struct Registration {
    Function function = nullptr;
    void* user = nullptr;
};

// The encoder session behind the kt_ functions.
//
// Threads: any thread may call everything.  No lock is held while a callback runs, so callbacks may call
// everything too; only Close and Reset are refused there, since they wait for the callback to end.
class Session {
public:
    // Never destroyed: a program may end while the library is open and its thread still at work.
    static Session& Get();

    // --- Session.cpp: one call, the session, what it reports

    // One call of a kt_ function: recorded, then refused (false, with a log line) when it is to fail or not
    // in one of the stages; the lock is held until the guard goes.
    class Call {
    public:
        Call(Session& session, const char* function, const std::string& arguments, unsigned stages);
        explicit operator bool() const { return m_Admitted; }

    private:
        const std::lock_guard<std::mutex> m_Guard;
        const bool m_Admitted;
    };

    // kt_init, kt_uninit, kt_md_start and kt_md_capture, each with its Call.
    bool Open(int mode);
    bool Close();
    bool Start();
    bool Capture(const char* path);

    // Queues a callback.  False when the library is not open.
    bool Notify(Notice notice);
    // A log line; kept for later while there is no log function.
    void Log(int level, const std::string& text);
    void Flush() { m_Delivery.Flush(); }

    // The next count calls of the function fail.  False when there is no such function.
    bool Fail(const std::string& function, int count);
    CaptureFaults Faults();
    void SetFaults(const CaptureFaults& faults);
    std::string Calls();
    void ForgetCalls();
    void Reset();

    // --- Control.cpp

    // A control line; false when it is not understood.
    bool CarryOut(const std::string& line);

    // --- For the registrations and setters of Library.cpp, while a Call is held

    void SetLogFunction(kt_md_log_callback function);
    void LogLocked(int level, const std::string& text);
    void ReportState(H264EncState state) { m_Delivery.Post({Notice::Kind::State, state, 0, {}}); }

    void SetStage(Stage stage);
    int m_Rotation = 0; // degrees
    Registration<kt_sys_event_callback> m_OnSysEvent;
    Registration<kt_md_event_callback> m_OnMdEvent;
    Registration<kt_md_state_callback> m_OnState;

private:
    Session() = default;

    // What one kt_md_capture is to do.
    struct Shot {
        uint64_t run;
        uint64_t frame; // from 1
        int degrees;
        CaptureFaults faults;
        bool hasTestCard;
        std::string file; // with the picture; empty when there is none
    };

    // With the lock held.
    void Record(const char* function, const std::string& arguments);
    bool Admit(const char* function, const std::string& arguments, unsigned stages);
    bool FailsOnRequest(const char* function);
    void ReadEnvironment();
    Shot NextShot();

    // Without the lock.
    void ReadControl();
    void HandleLine(const std::string& line);
    void Deliver(const Notice& notice);
    bool WaitForShot(const Shot& shot);                              // false: the encoder was stopped
    static std::string TakeShot(const Shot& shot, const char* path); // the reason of a failure, or empty
    void End();                                                      // STAGE_BUSY to STAGE_CLOSED

    // Guards every field but the two objects at the end.  The lock of m_Delivery may be taken while it is
    // held, never the other way round.
    std::mutex m_Lock;
    Stage m_Stage = STAGE_CLOSED;
    std::condition_variable m_StageChanged; // a slow capture waits for it
    uint64_t m_RunCount = 0; // of kt_md_start: tells a restarted encoder from one that never stopped
    uint64_t m_FrameCount = 0;
    kt_md_log_callback m_OnLog = nullptr;
    std::deque<Notice> m_EarlyLog; // lines from before there was a log function
    std::string m_Calls;           // one line each
    std::map<std::string, int> m_Failures;
    CaptureFaults m_Faults;
    std::string m_PicturePath; // XENC_PICTURE; empty: the test card
    std::vector<std::string> m_PictureFiles;

    ControlInput m_Control; // Open while STAGE_BUSY, then the delivery thread
    Delivery m_Delivery;
};

} // namespace qz::xenc
