#pragma once

#include <string>
#include <system_error>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane {

// What tests do to files and the tool does not.

/// The names in a directory, without "." and "..", sorted.
std::error_code listDirectory(const std::string& path, std::vector<std::string>& names);

/// Sets the modification date (and access date) to the nearest nanosecond.
std::error_code setModificationDate(const std::string& path, Date date);

/// The permissions of what stands at `path`, links followed; 0 when nothing does.
unsigned modeOf(const std::string& path);

/// Whether nobody has a hold on what stands at `path`; waits for those who have.
bool canBeHeld(const std::string& path);

/// Sets this process's mask of permissions for as long as this object lives.
class ScopedUmask {
 public:
  explicit ScopedUmask(unsigned mask);
  ~ScopedUmask();
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;

 private:
  unsigned _before;
};

}  // namespace corvane
