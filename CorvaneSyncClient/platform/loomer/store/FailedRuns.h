#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane::loomer {

/// The failed runs of one client.
struct FailedRunsOfClient {
  std::int64_t all = 0;
  std::int64_t inARow = 0;  ///< since the last one that succeeded; 0 where the newest run did
  Date since;               ///< when the first of those failed, or of the last such row
  Date last;
  Message cause;  ///< why the last one failed: a sentence or more
};

/// Which runs failed, and why, for whoever asks how it goes. A file beside the store ("FailedRuns.plist") and
/// not in it, so that a run can tell of a store that cannot be opened, or is not there yet. Runs that succeed
/// leave it alone unless the one before failed: when they ended is in the store.
///
/// It is replaced whole: runs take turns by the single-run lock, and where two write at once all the same,
/// the later one's note stands. Where it cannot be written, a line in the diagnostic log says why; one that
/// cannot be read counts as empty.
class FailedRuns {
 public:
  /// Touches nothing.
  explicit FailedRuns(const std::string& storePath);

  /// By the clients' identifiers.
  std::map<std::string, FailedRunsOfClient> all() const;
  /// A run of the client has just failed.
  void note(const String& client, const Message& cause) const;
  /// A run of the client has succeeded: the next one that fails is the first in a row.
  void endRow(const String& client) const;
  /// The client is no more.
  void forget(const String& client) const;

 private:
  Dictionary read() const;
  void write(const Dictionary& runs) const;

  std::string _path;
};

}  // namespace corvane::loomer
