#pragma once

#include <string>

namespace qz::common {

// A text as JSON has it, quotation marks included; up to a zero byte.  Pieces that are no UTF-8, as other programs'
// messages may hold, become U+FFFD: strict readers would refuse the whole.  Any thread.
std::string JsonText(const std::string& text);

} // namespace qz::common
