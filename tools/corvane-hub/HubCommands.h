#pragma once

#include <string>
#include <vector>

namespace corvane::hubserver {

/// Does what the arguments (without the program's name) ask for and answers the exit status: 0; 1 for what
/// could not be done; 2 for a command that there is not. Results go to standard output, reasons to standard
/// error.
int runHubCommand(const std::vector<std::string>& arguments);

}  // namespace corvane::hubserver
