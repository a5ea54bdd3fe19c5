// What the page is told.  Tested in tests/desk/desk_test.py.
#include "desk/Events.h"

#include <algorithm>

namespace qz::desk {

namespace {

constexpr size_t LOG_LIMIT = 2000; // lines

std::string EventText(const std::string& subject, const std::string& json) {
    return "event: " + subject + "\ndata: " + json + "\n\n"; // JSON has no line end
}

} // namespace

void Events::Tell(const std::string& subject, const std::string& json) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    Subject& known = m_Subjects[subject];
    if (known.json == json)
        return;
    known = {json, ++m_Change};
    m_News.notify_all();
}

void Events::AddLogLine(const std::string& json) {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Log.push_back(json);
    if (m_Log.size() > LOG_LIMIT)
        m_Log.pop_front();
    ++m_LogEnd;
    m_News.notify_all();
}

void Events::Close() {
    const std::lock_guard<std::mutex> lock(m_Lock);
    m_Closed = true;
    m_News.notify_all();
}

std::string Events::TextAfter(Position& position) const {
    std::string text;
    if (position.log < m_LogEnd) {
        const uint64_t count = std::min<uint64_t>(m_LogEnd - position.log, m_Log.size());
        std::string lines;
        for (auto line = m_Log.end() - static_cast<std::ptrdiff_t>(count); line != m_Log.end(); ++line)
            lines += (lines.empty() ? "" : ",") + *line;
        text += EventText("log", "[" + lines + "]");
        position.log = m_LogEnd;
    }
    for (const auto& [name, subject] : m_Subjects) {
        if (subject.change > position.change)
            text += EventText(name, subject.json);
    }
    position.change = m_Change;
    return text;
}

std::optional<std::string> Events::After(Position& position, std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(m_Lock);
    m_News.wait_for(lock, limit, [&] { return m_Closed || position.log < m_LogEnd || position.change < m_Change; });
    if (m_Closed)
        return std::nullopt;
    return TextAfter(position);
}

} // namespace qz::desk
