#pragma once

#include <string>
#include <system_error>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Date.h"

namespace corvane {

// What tests do to files and the tool does not.

/// The names in a directory, without "." and "..", sorted.
std::error_code listDirectory(const std::string& path, std::vector<std::string>& names);

/// Sets the modification date (and access date) to the nearest nanosecond.
std::error_code setModificationDate(const std::string& path, Date date);

}  // namespace corvane
