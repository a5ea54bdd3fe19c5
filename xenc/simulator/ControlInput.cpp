// Where control lines come from.  Open, Close, ReadLines.
#include "xenc/simulator/ControlInput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace qz::xenc {

int ControlInput::Open(const std::string& path) {
    Close();
    struct stat status {};
    if (path.empty())
        return 0;
    if (stat(path.c_str(), &status) != 0)
        return errno;
    m_IsFifo = S_ISFIFO(status.st_mode);
    // A FIFO that is open for writing here too never reports its end, so writers may come and go.
    m_Fd = open(path.c_str(), (m_IsFifo ? O_RDWR : O_RDONLY) | O_NONBLOCK | O_CLOEXEC);
    return m_Fd < 0 ? errno : 0;
}

void ControlInput::Close() {
    if (m_Fd >= 0)
        close(m_Fd);
    m_Fd = -1;
    m_Piece.clear();
}

void ControlInput::ReadLines(const LineHandler& handler) {
    if (m_Fd < 0)
        return;
    char buffer[4096];
    ssize_t count = 0;
    while ((count = read(m_Fd, buffer, sizeof(buffer))) > 0) {
        m_Piece.append(buffer, static_cast<size_t>(count));
        size_t begin = 0;
        for (size_t end = 0; (end = m_Piece.find('\n', begin)) != std::string::npos; begin = end + 1)
            handler(m_Piece.substr(begin, end - begin));
        m_Piece.erase(0, begin);
    }
}

} // namespace qz::xenc
