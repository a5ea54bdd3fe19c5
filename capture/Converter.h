#pragma once

#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <mutex>
#include <string>

namespace qz::capture {

// The external decoder, djpeg in the program directory, which turns a JPEG file into a scaled GIF file. There is at
// most one at a time in the process.
class Converter {
public:
    // Converts the picture src into dst with a scale such as "4/8", and waits for the decoder to end. Whether dst holds
    // a picture now; after a false one there may be a piece of one.  False at once after Bar.
    bool Convert(const char* scale, const std::string& dst, const std::string& src); // command

    // Kills the decoder that is running and lets no other one start.
    void Bar(); // any thread

    // Kills the decoder that is running, at the end by a fault.  Async-signal-safe.
    static void KillRunning();

private:
    pid_t Start(const char* scale, const std::string& dst, const std::string& src);
    bool Collect(pid_t child, siginfo_t& info);

    std::mutex m_Lock; // guards m_Barred and every change of m_Running: only a process of ours is ever killed
    bool m_Barred = false;
    static std::atomic<pid_t> m_Running; // 0: none
};

} // namespace qz::capture
