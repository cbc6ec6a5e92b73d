#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane::loomer {

/// A copy of a client's file as it was before a save that left entries of it out.
struct KeptFile {
  std::string path;
  std::size_t entries = 0;  ///< that were left out, with all that they hold
  std::string digest;       ///< names what was left out
  Date kept;
};

/// The copies of one client's file that are kept beside the store, in a directory of the client's own
/// ("Kept/IDENTIFIER"), closed to other users. The newest five stay.
class KeptFiles {
 public:
  /// Touches nothing.
  KeptFiles(const std::string& storePath, const String& identifier);

  /// Newest first. Raises LoomerStoreException where the directory cannot be read.
  std::vector<KeptFile> all() const;

  /// Keeps a copy of the file at `path`, of which a save is about to leave out these entries, and answers
  /// where; the copy is durable then. One that was kept of the same entries before serves again, so that
  /// entries that come back each time do not push other copies out. `digest` is made of letters and digits.
  ///
  /// Raises LoomerStoreException where it cannot be kept.
  std::string keep(const std::string& path, std::size_t entries, const std::string& digest) const;

 private:
  std::string _directory;
};

}  // namespace corvane::loomer
