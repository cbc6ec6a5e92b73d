#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane::loomerctl {

/// What there is to say of a client's bookmarks file.
struct BookmarksFile {
  std::string path;
  std::optional<Date> modified;  ///< nothing where there is no file, or it cannot be looked at
  std::uint64_t bytes = 0;
  std::string problem;     ///< why no session can read it, a sentence; empty where one can
  bool isMissing = false;  ///< there is none where there has to be one
  bool isOfOldVersion = false;
};

/// Reads bookmarks files as a session reads them, without a trace in the system log, and each again only when
/// it has changed.
class BookmarksFiles {
 public:
  /// Nothing for a client that has no file, such as the online service. Valid until the next call.
  const BookmarksFile* fileOf(const String& client);

 private:
  struct Seen {
    FileAttributes attributes;
    BookmarksFile file;
  };
  std::map<std::string, Seen> _seen;  // by client
};

}  // namespace corvane::loomerctl
