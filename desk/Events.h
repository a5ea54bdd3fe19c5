#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace qz::desk {

// What there is to tell, kept for any number of listeners who come and go: of each subject the latest, and of the log
// the last lines.  A listener who reads slowly misses what has been replaced meanwhile; nobody waits for it.
//
// Threads: any.
class Events {
public:
    // Replaces what was last told of the subject; nothing happens when it is the same.  Both are JSON.
    void Tell(const std::string& subject, const std::string& json);
    void AddLogLine(const std::string& json);

    // Ends every waiting.
    void Close();

    // How far a listener has read.
    struct Position {
        uint64_t log = 0;
        uint64_t change = 0;
    };

    // What follows the position, which moves on, as text of a stream of server-sent events: waits for it, and is empty
    // when the time has passed.  Nothing once closed.
    std::optional<std::string> After(Position& position, std::chrono::milliseconds limit);

private:
    struct Subject {
        std::string json;
        uint64_t change;
    };
    std::string TextAfter(Position& position) const;

    std::mutex m_Lock; // guards all below
    std::condition_variable m_News;
    std::map<std::string, Subject> m_Subjects;
    uint64_t m_Change = 0; // counts the tellings
    std::deque<std::string> m_Log;
    uint64_t m_LogEnd = 0; // counts the lines, those that are no longer kept too
    bool m_Closed = false;
};

} // namespace qz::desk
