#pragma once

#include <string>

#include "common/Owners.h"
#include "control/Deadline.h"

namespace qz::control {

// The daemon's command pipe, from the writer's side.  Nothing is ever created, nothing waits beyond the deadline.
class CommandPipe {
public:
    // Opens the pipe.  Throws a Failure that says what is wrong with it.
    CommandPipe();

    // Bytes that have not been read yet.
    int Unread() const;

    // Writes the command in one go.  Throws a Failure.
    void Write(const std::string& command);

private:
    qz::common::UniqueFd m_Pipe;
};

// Keeps the clients apart, so that none takes another's outcome for its own: a lock in the appliance's shared folder,
// which ends with the client.  Throws a Failure when the deadline passes before it is had.
class ClientLock {
public:
    explicit ClientLock(const Deadline& deadline);

private:
    qz::common::UniqueFd m_Lock;
};

} // namespace qz::control
