#pragma once

#include <string>

namespace qz::xenc {

class Session;

// Carries out a control line; false when it is not understood.
bool CarryOut(Session& session, const std::string& line);

} // namespace qz::xenc
