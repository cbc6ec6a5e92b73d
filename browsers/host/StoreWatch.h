#pragma once

#include <string>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::browsers {

/// Notices when somebody writes the engine's store (inotify), whichever process does it.
class StoreWatch {
 public:
  /// `store` is the path of the store, in a directory that exists. Where the system has no more watches, this
  /// notices nothing, with a line in the system log: other clients' changes then come with the user's own.
  explicit StoreWatch(const std::string& store);

  /// To be polled for; -1 where nothing is noticed.
  int descriptor() const { return _notices.number(); }
  /// Whether the store was written since this was last asked.
  bool wasWritten();

 private:
  std::string _name;
  FileDescriptor _notices;
};

}  // namespace corvane::browsers
