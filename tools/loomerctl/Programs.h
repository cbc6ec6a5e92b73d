#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace corvane::loomerctl {

/// How a program ended, and what it wrote to its standard output and error.
struct EndedProgram {
  int status = 0;  ///< its exit status; 128 and more where a signal ended it
  std::string output;
};

/// Runs a program to its end, with nothing on its standard input. One that is named without a slash is looked
/// for along PATH. Raises Refused where it cannot be started. `waiting`, if there is one, is told each second
/// how many have passed.
EndedProgram runProgram(const std::vector<std::string>& words,
                        const std::function<void(std::size_t seconds)>& waiting = nullptr);

/// The directory of this very program, all links resolved.
std::string ownDirectory();

}  // namespace corvane::loomerctl
