#pragma once

#include <string>
#include <vector>

#include "common/Owners.h"
#include "control/Deadline.h"

namespace qz::control {

// Waits for something to change in folders: by inotify, and where the system has none left, by looking often.
class ChangeWatch {
public:
    explicit ChangeWatch(const std::vector<std::string>& folders);

    // Returns when something has changed since the last call, at the latest after a moment or at the deadline.
    void Wait(const Deadline& deadline);

private:
    qz::common::UniqueFd m_Notify;
};

} // namespace qz::control
