#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

#include "common/Owners.h"

namespace qz::common {

// One message of the daemon's log, line ends in it included.
struct LogRecord {
    std::string text;  // the whole of it, as it stands in the file, without the last line end
    std::string time;  // YYYY-MM-DD HH:MM:SS.mmm
    std::string level; // ERR, WRN, INF or DBG; empty for a line that does not have the log's shape
    int pid = 0;
    std::string message;
};

// Reads the daemon's dated log files in their order, one record after the other, and goes on from one day's file to the
// next, and from one instance to the next.
//
// Threads: one.
class LogReader {
public:
    LogReader(std::string directory, std::string name);

    // Reading begins at the first record that is kept; with this, behind the last one there is now.
    void SeekToEnd();

    // The next record that is complete; none when there is no further one yet.
    std::optional<LogRecord> Next();

private:
    bool Fill();                                          // reads on; false when nothing came
    std::string FileAfter(const std::string& file) const; // "": none; after "" the first
    void Open(const std::string& file);

    const std::string m_Directory;
    const std::string m_Name;
    std::string m_File; // the open one; empty: none yet
    UniqueFd m_Descriptor;
    std::string m_Buffer; // read and not handed out
};

// Takes a record apart.
LogRecord ParseRecord(const std::string& text);

// Why this message ends the session that it belongs to, in words for a person; empty when it does not.  The board's
// events, some of which do, are not among them: the log tells what came, not what it led to.
std::string CauseOfEnd(const std::string& message);

} // namespace qz::common
