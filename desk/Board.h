#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace qz::desk {

// Presses what is on the simulated board: writes lines into its control file.  A line is made only of names that the
// catalogue has, of numbers, and of texts that are checked here, so that nothing else can be slipped in.
//
// What makes a call fail or spoils pictures may also be asked for while no daemon runs: it is in force from the next
// start on, the opening of the library included.  The pictures stay from session to session.
//
// Threads: any.  Every operation throws a Refusal.
class Board {
public:
    explicit Board(const std::string& folder); // the control file's

    // Around a session.  Prepare makes a control file for the next one and returns its path.
    std::string Prepare();
    void SetRunning(bool running);

    // Code: any.  Channel: sys or md.
    void Event(const std::string& channel, int code);
    void State(int code);
    void Log(int level, const std::string& text);

    // The next calls fail; 0 ends it.
    void Fail(const std::string& function, int times);
    void Hang(const std::string& function);

    // slow and truncate take an amount (milliseconds, bytes), empty and normal none.
    void Spoil(const std::string& mode, int amount);

    // The path is the desk's own, of a file or folder; empty: the test card.
    void ShowPictures(const std::string& path);

    // The lines that wait for the next start.
    std::vector<std::string> Waiting() const;

private:
    enum WhenEnded { REFUSED, WAITS };
    void Send(const std::string& line, WhenEnded whenEnded);
    void Append(const std::string& lines) const;

    const std::string m_Path;
    mutable std::mutex m_Lock; // guards all below, and the file
    bool m_Running = false;
    std::vector<std::string> m_Waiting;
    std::string m_Pictures; // empty: the test card
};

} // namespace qz::desk
