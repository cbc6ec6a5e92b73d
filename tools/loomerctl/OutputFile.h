#pragma once

#include <string>
#include <string_view>

namespace corvane::loomerctl {

/// Replaces the file at the path, atomically; writes into a pipe or a device. Raises Refused where it cannot
/// be written.
void writeOutputFile(const std::string& path, std::string_view bytes);

}  // namespace corvane::loomerctl
