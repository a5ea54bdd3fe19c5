#pragma once

#include <string>

namespace qz::common {

// A text as JSON has it, quotation marks included.
std::string JsonText(const std::string& text);

} // namespace qz::common
