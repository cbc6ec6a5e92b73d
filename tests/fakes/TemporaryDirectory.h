#pragma once

#include <string>

namespace corvane {

/// A fresh directory that goes away with its contents.
class TemporaryDirectory {
 public:
  /// Raises std::system_error when it cannot be made.
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  /// Absolute, without symbolic links and without a trailing slash.
  const std::string& path() const { return _path; }
  /// The path of `name` inside.
  std::string operator/(const std::string& name) const { return _path + "/" + name; }

 private:
  std::string _path;
};

}  // namespace corvane
