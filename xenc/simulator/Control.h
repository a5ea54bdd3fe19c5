#pragma once

#include <string>

namespace qz::xenc {

class Session;

// Carries out one control line (docs/simulator.md).  Empty, or what is wrong with the line; it then has no effect.
std::string CarryOut(Session& session, const std::string& line);

} // namespace qz::xenc
