#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <mutex>
#include <string>

#include "capture/Converter.h"
#include "capture/SignalEventObserver.h"
#include "common/Owners.h"
#include "xenc/xenc.h"

namespace qz::capture {

// The engine: one encoder session of the board's library, from the opening to the end, and what it publishes.
//
// A session runs from a successful Initialize in Run until any party ends it: the command pipe task, an event of the
// library, a signal.  The first one to clear m_Running fulfils m_Promise, for which Run waits.
//
// Threads, behind each operation: main; command (the command pipe task); library (the encoder library's own);
// dispatcher (the signals').  Flags and states are atomics: each is one fact, and nothing depends on reading two of
// them at the same instant.
class Capture : public SignalEventObserver {
public:
    // Touches neither the library nor the configuration.
    Capture();

    // Closes what is still open.  Not while the library may call back; see LibraryClosed.
    ~Capture() override;

    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    // --- CaptureSession.cpp: opening, re-opening and closing the encoder

    // Opens the library and starts encoding with the configured rotation; whether the session is usable.  A failure
    // leaves open what was opened, for Destory.  False without a word while a session is running.
    bool Initialize(); // main

    // Re-opens the session with the rotation of a screen mode (0 to 3 quarter turns, any other none), which becomes the
    // configured one.  Takes a second when it succeeds.
    void resetScreenMode(int32_t mode); // command

    // Closes whatever the flags say is open.  Stages that were not open are reported as failures: that is how a partial
    // start shows in the log.  (The spelling is the interface.)
    void Destory(); // main
    void Stop();    // main; the same

    // Whether the library is closed, so that it calls back no more and the engine may be destroyed.
    bool LibraryClosed() const { return !m_XEncInit; } // main

    // The library's rotation for a screen mode: the degrees in the upper 16 bits.
    static int32_t Rotation(int32_t mode); // any thread

    // --- CaptureEvents.cpp: what the library and the kernel tell us

    // Texts of the library's codes; "UNKNOWN" for any other.  (The spelling is the interface.)
    static std::string CovertStrEvent(int code);
    static std::string CovertStrState(H264EncState state);

    // Logs the event and, for those that the session cannot outlive, ends the session.  False for a null user.
    static bool onXEncSysEvent(int event, int param, void* user); // library
    static bool onXEncMdEvent(int event, int param, void* user);  // library

    // Logs and records the encoder state.  False for a null user and for an unknown state.
    static bool onXEncMdState(int state, int param, void* user); // library
    bool OnXEncMdState(int state, int param);                    // library

    // Forwards the library's lines above its level 4 to the log, as debug lines.
    static void onXEncLog(int level, const char* text); // library

    // The encoded streams are not used here: true, at once.
    static bool onXEncNal(void* data, int size, int type, void* user); // library
    static bool onXEncAudio(void* data, int size, void* user);         // library

    // SIGQUIT, SIGUSR1 and SIGTERM end the session, any other signal is logged.
    void OnSignalEvent(int signal, pid_t pid) override; // dispatcher

    // --- CaptureRun.cpp

    // Runs one session, once per object: 1 after an orderly end, -1 when it did not start or has run before.  Waits for
    // the command pipe task, so that nothing is closed beside it; EndWatch bounds the wait.
    int Run(); // main

    // --- CaptureCommands.cpp

    // Serves the command pipe until the session ends, or ends it: on "capture_end", when the pipe fails and when no
    // snapshot has succeeded for more than ten seconds.
    void taskMdCapture(); // command

    // --- CaptureSnapshot.cpp: one picture, published

    // Takes a snapshot and refreshes the live view.  True when the library wrote a picture; a failed conversion keeps
    // the last live view and is no failure.
    bool XEncCapture(); // command; holds m_XEncMutex throughout

    // Converts the published snapshot into the live view.
    void Resize(); // command

    // Copies a file byte by byte, over a destination that is removed first.  False without a line for an empty name and
    // for a source that is missing or a directory; the destination then stays.
    static bool CopyFileBinary(std::string src, std::string dst); // main, command

    // Rate (percent of the original, in tens) and the decoder's scale for a picture: pure.
    struct Scale {
        float ratio;
        int rate;
        const char* fraction;
    };
    static Scale ScaleFor(int width, int height, bool vertical); // any thread

private:
    // --- CaptureSession.cpp
    bool ConfigureEncoder(int32_t rotation); // kt_md_init's result
    bool StartEncoder();                     // kt_md_start's result

    // --- CaptureEvents.cpp
    // The one way a session ends: whoever clears m_Running fulfils the promise and wakes the command pipe task.  No
    // effect while no session is running.
    void EndSession(); // any thread

    // --- CaptureRun.cpp
    bool StartCommandTask();
    void WaitForCommandTask();

    // --- CaptureCommands.cpp
    void ServePipe(int pipe);
    int WaitForCommand(int pipe);              // select's answer
    bool Dispatch(const std::string& command); // false ends the session
    void ChangeScreenMode(const std::string& argument);

    // --- CaptureSnapshot.cpp
    static void PublishFailurePicture();

    std::promise<int> m_Promise; // the session's end; fulfilled by the one who cleared m_Running
    std::future<int> m_Future;   // Run waits on it
    // Each says what has to be undone; see Initialize, resetScreenMode and Destory, their only writers.
    std::atomic<bool> m_XEncInit{false}; // kt_init succeeded, kt_uninit has not yet
    std::atomic<bool> m_MdInit{false};   // kt_md_init succeeded, kt_md_uninit has not yet
    std::atomic<bool> m_MdStart{false};  // kt_md_start succeeded, kt_md_stop has not yet
    // Set by Run; cleared by EndSession, with one winner.
    std::atomic<bool> m_Running{false};
    std::atomic<bool> m_WasRun{false};      // Run was called
    std::atomic<int> m_MdState{STATE_ZERO}; // written by the state callback

    qz::common::UniqueFd m_EndEvent; // an eventfd in the command pipe task's select set: the session has ended
    std::future<void> m_CommandTask; // ready once the task has left the engine; its state is not the engine's
    std::chrono::system_clock::time_point m_LastSuccess; // command only

    Converter m_Converter;

    static std::mutex m_XEncMutex; // serialises snapshots and nothing else
};

} // namespace qz::capture
