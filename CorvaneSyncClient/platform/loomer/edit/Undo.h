#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

/// Something that an undo leaves as it is, or cannot bring back quite as it was.
struct UndoNote {
  RecordId record = 0;
  String name;          ///< of the record, absent where it has none
  MessageText<1> what;  ///< a sentence about the record, which stands at "%1"
};

/// What an undo does to the truth, and what it has to say of it.
struct UndoPlan {
  std::vector<TruthChange> changes;
  std::vector<UndoNote> notes;
};

/// What brings back what a session changed, deleted or added, as changes of the truth as it is now.
///
/// Each attribute on its own: what a later session changed again stays, unless `force`. What the session
/// added goes, except folders that hold something else by now. What it deleted comes back under its old
/// number and on its old place; where its folder is gone since, in the nearest folder above that is not.
/// Moves that would close a cycle by now are left out. On a truth that nothing else changed since, the
/// result is exactly what was there before the session. Pure; O(n log n) in the number of records, without
/// recursion.
///
/// `truth` by ascending id, tombstones included; `revision` is the one that changed records get.
UndoPlan planUndo(const std::vector<TruthRecord>& truth, const std::vector<LoggedChange>& changes,
                  std::int64_t revision, bool force);

/// What an undo did.
struct UndoResult {
  /// The number of the session that undid it; nothing when there was nothing left to undo.
  std::optional<std::int64_t> session;
  std::size_t changed = 0;  ///< records
  std::vector<UndoNote> notes;
};

/// Undoes a session: enters what `planUndo` says as a new session. `author` stands in the log. Raises
/// LoomerStoreException, changing nothing, when the log has forgotten the session.
UndoResult undoSession(TruthStore& store, const String& author, std::int64_t session, bool force);

}  // namespace corvane::loomer
