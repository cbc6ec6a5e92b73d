#pragma once

#include <string>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::loomerctl {

/// Notices writes in directories, by inotify(7): whoever waits for the descriptor to become readable costs
/// nothing meanwhile. What happens to files that only come with opening a store is not noticed.
class ChangeWatch {
 public:
  /// Raises PlatformException where the system has no watch left.
  ChangeWatch();

  /// One that is not there, or is watched already, is no error.
  void add(const std::string& directory);
  /// Readable when something has happened.
  int descriptor() const { return _events.number(); }
  /// Whether what happened since this was asked last concerns a file that says something.
  bool take();

 private:
  FileDescriptor _events;
};

}  // namespace corvane::loomerctl
