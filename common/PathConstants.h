#pragma once

#include <string>

// Pieces that paths and records are composed of.
namespace qz::common {

const std::string PATH_SEPARATOR = "/";
const std::string DOUBLE_SEPARATOR = "//";
const std::string CURRENT_DIR_PREFIX = "./";
const std::string LOG_EXTENSION = ".log";
const std::string FIELD_SEPARATOR = "|";

} // namespace qz::common
