#pragma once

#include <string>
#include <system_error>

namespace corvane {

/// As `FileSystem::remove`.
std::error_code removeTree(const std::string& path);

}  // namespace corvane
