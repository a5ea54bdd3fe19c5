#pragma once

#include <string>

namespace qz::desk {

// Why something that was asked for is not done, in one sentence for a person.  Thrown wherever a request is carried
// out; the server answers with it.
struct Refusal {
    int status; // of HTTP
    std::string reason;
};

constexpr int WRONG_REQUEST = 400;
constexpr int FOREIGN = 403;
constexpr int NOT_NOW = 409; // the daemon is not in the state for it
constexpr int TOO_LARGE = 413;
constexpr int NO_JPEG = 415;
constexpr int TROUBLE = 500;
constexpr int BUSY = 503;

} // namespace qz::desk
