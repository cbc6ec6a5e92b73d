#pragma once

#include <sys/stat.h>

#include <functional>
#include <string>
#include <string_view>
#include <system_error>

namespace corvane {

/// As `FileSystem::read`. Once the file is open, `check` looks at what it is; its error refuses the file.
std::error_code readRegular(const std::string& path, std::string& contents,
                            const std::function<std::error_code(const struct stat&)>& check);
/// As `FileSystem::copy`.
std::error_code copyRegular(const std::string& from, const std::string& to);
/// As `FileSystem::write`.
std::error_code writeRegular(const std::string& path, std::string_view contents);

}  // namespace corvane
