#pragma once

#include <string>
#include <vector>

namespace corvane {

/// Gives the program that this process is about to execute a system log of its own: each line is appended to
/// `file`. For a child between fork and exec, since it changes the environment; ends it with status 126 on
/// failure.
void usePrivateSyslog(const std::string& file);

/// The lines of such a log, oldest first; none when nothing was logged.
std::vector<std::string> linesOfPrivateSyslog(const std::string& file);

}  // namespace corvane
