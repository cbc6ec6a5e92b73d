#pragma once

#include <string>

namespace corvane::loomerctl {

/// The argument that stands for standard input or output instead of a file.
inline constexpr const char* kStandardStream = "-";

/// The argument as people call it: the path, or "standard input".
std::string inputName(const std::string& path);

/// All that the file, a pipe or a device too, or standard input holds. Raises Refused when it cannot be read.
std::string readInput(const std::string& path);

/// The first line of standard input, without white space around it. From a terminal it is asked for with
/// `prompt` on standard error, and what is typed is not shown. Raises Refused when it cannot be read, holds
/// nothing, or the user cancels.
std::string readSecretLine(const char* prompt);

}  // namespace corvane::loomerctl
