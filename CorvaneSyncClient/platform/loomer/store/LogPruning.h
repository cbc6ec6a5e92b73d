#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

namespace corvane::loomer {

/// The log keeps this many sessions, and all of the last days, whichever is more.
inline constexpr std::int64_t kKeptSessions = 1000;
inline constexpr double kKeptSeconds = 90.0 * 24 * 60 * 60;

/// As many rows at most leave the log in one session, besides as many as the session itself added to it.
inline constexpr std::size_t kPrunedRows = 4096;

/// Drops what is old from the log, oldest first, in the open transaction: sessions, their changes and losses,
/// and contents that nothing refers to any more. Stops after `rows` rows, and goes on from there the next
/// time; a session of which a part is dropped counts as dropped (see SessionLog). Costs in proportion to
/// `rows`, whatever the size of the store. A session dated later than `now` is as old as the one after it.
void pruneLog(TruthStore& store, Date now, std::size_t rows);

/// Drops contents that the truth, the bases or the log referred to until now, in the open transaction.
class ReleasedContents {
 public:
  /// Finds out whether the log is whole.
  explicit ReleasedContents(TruthStore& store);

  /// Whether there can be anything to drop: a log that is whole refers to everything that the truth ever
  /// held.
  bool isNeeded() const { return _isLogPruned; }
  /// Notes, where needed, that one reference of the record to the content is going.
  void add(RecordId record, ContentId content) {
    if (_isLogPruned) _released.emplace_back(record, content);
  }
  /// Drops those to which nothing refers by now.
  void drop();

 private:
  Database& _database;
  bool _isLogPruned;
  std::vector<std::pair<RecordId, ContentId>> _released;
};

}  // namespace corvane::loomer
