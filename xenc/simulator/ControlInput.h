#pragma once

#include <functional>
#include <string>

namespace qz::xenc {

// The file or FIFO with control lines.
//
// Threads: one at a time.
class ControlInput {
public:
    using LineHandler = std::function<void(const std::string&)>;

    ControlInput() = default;
    ~ControlInput() { Close(); }

    ControlInput(const ControlInput&) = delete;
    ControlInput& operator=(const ControlInput&) = delete;

    // An empty path is no input.  0 or the errno.
    int Open(const std::string& path);
    void Close();

    // Hands over the complete lines that have arrived; a piece of a line is kept until its end comes.  Never blocks.
    void ReadLines(const LineHandler& handler);

    int Descriptor() const { return m_Fd; } // -1: closed
    bool CanPoll() const { return m_IsFifo; }

private:
    int m_Fd = -1;
    bool m_IsFifo = false;
    std::string m_Piece; // of a line
};

} // namespace qz::xenc
