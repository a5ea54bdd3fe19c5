#pragma once

#include <chrono>
#include <mutex>
#include <string>

namespace qz::desk {

// The daemon's command pipe, from the writer's side.
//
// Threads: any; one command at a time, since two at once would be read as pieces of both.
class CommandPipe {
public:
    // Writes the command once the one before has been read.  Throws a Refusal: nobody reads, or not within the time.
    void Send(const std::string& command, std::chrono::milliseconds limit);

private:
    std::mutex m_Lock; // from the look whether the pipe is empty to the write
};

} // namespace qz::desk
