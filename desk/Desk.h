#pragma once

#include <atomic>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "common/LogReader.h"
#include "desk/Board.h"
#include "desk/CommandPipe.h"
#include "desk/Daemon.h"
#include "desk/Events.h"
#include "desk/Picture.h"
#include "desk/Session.h"
#include "desk/Uploads.h"

namespace qz::desk {

// The whole of it: the board, the daemon and what is known about them.  A thread of its own follows the log and the
// published pictures and tells the listeners of every change.
//
// Threads: any.  What cannot be done throws a Refusal.
class Desk {
public:
    explicit Desk(const std::string& folder); // of the desk's own files
    ~Desk();                                  // ends the daemon

    // Rotation: 0 to 3 quarter turns; none: the daemon is not told.
    void Start(bool debug, std::optional<int> rotation);
    void Snapshot();
    void Rotate(int mode);
    void End();
    void Signal(const std::string& name);

    // As long as it is on, a snapshot is asked for every few seconds, so that the session stays.
    void KeepAlive(bool on) { m_KeepAlive = on; }

    // JPEG files take turns in front of the encoder; begin: the first of them.
    void ShowPicture(const std::string& bytes, bool begin);
    void ShowTestCard();

    Board& TheBoard() { return m_Board; }
    Events& TheEvents() { return m_Events; }

private:
    void Follow(); // the following thread
    void FollowLog();
    void KeepSession();
    void TellOwnState();
    std::string LastPrinted() const;

    const std::string m_Output; // what the daemon prints
    Events m_Events;
    Session m_Session;
    Board m_Board;
    Uploads m_Uploads;
    CommandPipe m_Pipe;
    std::atomic<bool> m_KeepAlive{false};
    std::atomic<bool> m_TestCard{true};
    std::mutex m_Turn;    // for one start, or one look at the log: its lines come after the pid is known
    bool m_Debug = false; // of the session that is being started, and:
    int m_Rotation = 0;
    Daemon m_Daemon;

    // The following thread's.
    qz::common::LogReader m_Log;
    Picture m_LiveView;
    Picture m_Snapshot;
    int64_t m_Asked = 0; // when the session was last kept
    std::atomic<bool> m_Over{false};
    std::thread m_Follower;
};

} // namespace qz::desk
