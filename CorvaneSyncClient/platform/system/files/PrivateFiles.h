#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <system_error>

#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane {

// Files and directories that are the user's own, closed to all others.

inline constexpr mode_t kPrivateDirectoryMode = 0700;
inline constexpr mode_t kPrivateFileMode = 0600;

/// What a path is called that an operation below failed on, and why; no error when all went well.
struct PrivateFileError {
  std::string path;
  std::error_code error;
  explicit operator bool() const { return static_cast<bool>(error); }
};

/// Makes the directory with those above it that are missing, all for the user alone, and
/// closes it to others where it stood there open.
PrivateFileError makePrivateDirectory(const std::string& path);
/// Gives what stands at `path` this mode where it has another one.
PrivateFileError setMode(const std::string& path, mode_t mode);

/// As `FileSystem::read`, of a file that is the user's own and closed to all others, all told by one open
/// file; `std::errc::operation_not_permitted` for any other. Root may act for the user whom the file belongs
/// to.
std::error_code readPrivateFile(const std::string& path, std::string& contents);

/// Keeps others of the user's processes, as long as the answer lives, from what stands or will stand at
/// `path`: by a hold on the file `path` + "-lock", which is made where it is missing, with its directory.
/// Empty, with `problem` set, where that cannot be, and where others hold it for ten seconds.
std::unique_ptr<FileSystem::Hold> holdBeside(const std::string& path, PrivateFileError& problem);

/// New files are the user's alone for as long as this object lives, also those that others of this process
/// make.
class PrivateUmask {
 public:
  PrivateUmask();
  ~PrivateUmask();
  PrivateUmask(const PrivateUmask&) = delete;
  PrivateUmask& operator=(const PrivateUmask&) = delete;

 private:
  mode_t _before;
};

}  // namespace corvane
