#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>
#include <system_error>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/TemporaryNames.h"

namespace corvane {

/// A new file beside a target, whose place it is to take. Gone again with this object until it has taken it.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& target) : _target(target) {}
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  /// Makes the file with these contents and has it reach the disk; with the mode of `old`, and where
  /// permitted its owner, unless that is null. Opens the directory too, which `settle` needs.
  std::error_code write(std::string_view contents, const struct stat* old);
  const std::string& path() const { return _path; }
  /// To be called once the file was renamed to the target: the directory reaches the disk, and what writers
  /// of the same target left behind when they were killed is removed. Errors are of `notDurableCategory`.
  std::error_code settle();

 private:
  std::error_code create(mode_t mode, FileDescriptor& file);

  Place _target;
  std::string _path;  // empty before the file is made and once it is settled
  FileDescriptor _directory;
};

}  // namespace corvane
