#pragma once

#include <string_view>

namespace corvane::hubserver {

/// How grave a line is, with the numbers of syslog(3).
enum class Gravity { error = 3, warning = 4, notice = 5 };

/// Writes a line to standard error, for the journal with its gravity. Never a token, nor what an object
/// holds.
void logLine(Gravity gravity, std::string_view text);

}  // namespace corvane::hubserver
