#pragma once

#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

namespace corvane::loomer {

/// What kind of session the engine runs. The numbers are those of LoomerSyncMode, as far as they go, and
/// stand in the log. The last two are changes of the truth by a person, without a client.
enum class SessionKind : int {
  fast = 1,
  slow = 2,
  refresh = 3,
  replace = 4,     ///< the client is emptied and given everything
  undo = 5,        ///< a session was undone
  importFile = 6,  ///< a bookmarks file was read
};

/// One finished session that changed something on either side. Quiet sessions are counted with their client
/// and leave no row.
struct SessionEntry {
  std::int64_t id = 0;
  String client;  ///< its identifier; the client may be unregistered since
  Date began;
  Date ended;
  int mode = 0;               ///< a SessionKind
  std::int64_t revision = 0;  ///< of the truth after it
  std::size_t taken = 0;      ///< records that the client pushed
  std::size_t changed = 0;    ///< records of the truth that it changed
  std::size_t delivered = 0;  ///< changes for the client
  std::size_t refused = 0;    ///< of those, how many it did not: refused, ignored or withheld
};

/// One side of a logged change.
struct LoggedState {
  RecordId parent = kRoot;
  std::int64_t place = 0;
  Content content;
};

/// What one session did to one record. A side is nothing where the record did not exist or was deleted.
struct LoggedChange {
  std::int64_t session = 0;
  RecordId record = 0;
  Entity entity = Entity::bookmark;
  std::optional<LoggedState> before;
  std::optional<LoggedState> after;
};

/// When a record was added and when it was last changed, as far as the log goes back.
struct RecordDates {
  std::optional<Date> added;
  std::optional<Date> changed;
};

/// What happened to the truth: who, when, which record, before and after, and what lost a conflict. Sessions
/// that are dropped, or of which the dropping has begun (see LogPruning.h), are not in it any more.
class SessionLog {
 public:
  explicit SessionLog(TruthStore& store) : _store(store) {}

  /// In the open transaction: enters the session, its changes and its losses, and answers the session's
  /// number.
  std::int64_t enter(const SessionEntry& session, const std::vector<TruthChange>& changes,
                     const std::vector<Loss>& losses, ContentRows& contents);

  /// Whether the session was in the log and is dropped.
  bool isPruned(std::int64_t session);
  /// Of sessions in the log.
  std::size_t count();
  /// Of every record that a session in the log added or changed.
  std::unordered_map<RecordId, RecordDates> dates();
  /// Oldest first.
  std::vector<SessionEntry> sessions();
  /// Hands over the sessions, newest first, one at a time, until `take` answers false.
  void newestFirst(const std::function<bool(const SessionEntry&)>& take);
  /// Nothing when the log has no such session.
  std::optional<SessionEntry> session(std::int64_t id);
  /// The session's changes by ascending record, of one record alone where one is named, one at a time, until
  /// `take` answers false.
  void changesOf(std::int64_t session, std::optional<RecordId> record,
                 const std::function<bool(const LoggedChange&)>& take);
  /// By ascending record.
  std::vector<LoggedChange> changes(std::int64_t session);
  /// How many folders and bookmarks the session added, where it did nothing else to the truth.
  std::optional<RecordCounts> additionsAlone(std::int64_t session);
  /// The values that lost a conflict in the session.
  std::vector<Loss> losses(std::int64_t session);
  /// How many those are.
  std::size_t lossCount(std::int64_t session);

 private:
  TruthStore& _store;
};

}  // namespace corvane::loomer
