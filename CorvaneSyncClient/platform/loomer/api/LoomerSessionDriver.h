#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerChange.h"

namespace corvane {

/// A client registered with the engine, and the values that the engine keeps for it between sessions.
class LoomerClient {
 public:
  virtual ~LoomerClient() = default;
  /// The name under which the engine keeps its base.
  virtual String clientIdentifier() const = 0;
  /// The value kept under `key`; nothing when there is none.
  virtual std::optional<Value> objectForKey(const String& key) = 0;
  /// `setObject:forKey:`; nothing removes the value.
  virtual void setObject(const std::optional<Value>& object, const String& key) = 0;
};

class LoomerSessionDriver;

/// Whether the truth has moved on from what a client holds (`old`), or others gave it to the client since
/// (`news`).
enum class Age : std::uint8_t { unknown, old, news };

/// Of the values of one of a client's records.
struct Ages {
  Age name = Age::unknown;
  Age url = Age::unknown;
  Age tabGroup = Age::unknown;
  Age parent = Age::unknown;
  Age place = Age::unknown;  ///< among its siblings
};

/// An earlier state of a client, to which it was put back, though others may have changed it since.
struct EarlierState {
  /// The number of the client's session whose end it stood at, or stood after; 0 for one before the first.
  std::int64_t session = 0;
  /// The local ids of what was added, changed or deleted at the client since that state, as far as the client
  /// can tell.
  std::unordered_set<String> changed;
  /// By local id, as far as the client can tell.
  std::unordered_map<String, Ages> ages;
  /// The local ids of what was deleted there by a deletion from which the truth has moved on.
  std::unordered_set<String> oldDeletions;
  /// The local ids of what the client knows to be older there than what the truth gave to it, though it may
  /// say the same.
  std::unordered_set<String> outdated;
};

/// What the engine asks of a client during one session. All calls come synchronously from inside
/// `LoomerSessionDriver::sync`, from one thread.
class LoomerSessionDriverDataSource {
 public:
  virtual ~LoomerSessionDriverDataSource() = default;

  /// Who the client is: the name under which the engine keeps its base.
  virtual String clientIdentifier() = 0;
  /// File URL of the client description; nothing when there is no such resource.
  virtual std::optional<Url> clientDescriptionURL() = 0;
  /// File URLs of the bundles that hold the schema of its records.
  virtual std::vector<Url> schemaBundleURLs() = 0;
  /// All entities of the schema: a session without one of them is cancelled.
  virtual std::vector<String> entityNamesToSync() = 0;
  /// A LoomerSyncMode.
  virtual int preferredSyncModeForEntityName(const String& entityName) = 0;
  /// How long to wait for another session to end, in seconds.
  virtual double sessionBeginSessionTimeout() = 0;
  /// How long the client may take to take the changes in, in seconds.
  virtual double sessionPullChangesTimeout() = 0;

  /// `recordsForEntityName:moreComing:error:`: records by local id. Asked again while `moreComing` is set to
  /// true.
  virtual Dictionary recordsForEntityName(const String& entityName, bool& moreComing, String& error) = 0;
  using TakeRecord = std::function<void(const String& localId, const Dictionary& record)>;
  /// Gives one by one what `recordsForEntityName` would answer, so that the records of a large client need
  /// not all be there at once. False, with none given, where the client wants to be asked for them.
  virtual bool giveRecords(const String& /*entityName*/, const TakeRecord& /*take*/) { return false; }
  /// `changedRecordsForEntityName:moreComing:error:`: as above, the records changed since the last session.
  virtual Dictionary changedRecordsForEntityName(const String& entityName, bool& moreComing,
                                                 String& error) = 0;

  // A client that is mostly what it was at its last session can say so without making its records.

  /// A digest, made with `key`, of each record that the client would give if it were asked for all of them,
  /// in an order that stays while none comes, goes or moves: equal ones are of records that say the same
  /// under the same local id. Nothing where the client wants to be asked for its records.
  virtual std::optional<std::vector<std::uint64_t>> recordDigests(const HashKey& /*key*/) {
    return std::nullopt;
  }
  /// By local id, the entity's records among those at `places`, ascending, of what `recordDigests` last
  /// answered.
  virtual Dictionary recordsAt(const String& /*entityName*/, const std::vector<std::size_t>& /*places*/) {
    return {};
  }

  /// `applyChange:forEntityName:remappedRecordIdentifier:formattedRecord:error:` answers a
  /// LoomerChangeResult. `remappedRecordIdentifier` receives the client's own id for an added record and is
  /// otherwise left alone.
  virtual int applyChange(const LoomerChange& change, const String& entityName,
                          String& remappedRecordIdentifier, const Dictionary* formattedRecord,
                          String& error) = 0;
  /// `deleteAllRecordsForEntityName:error:`; false cancels the session.
  virtual bool deleteAllRecordsForEntityName(const String& entityName, String& error) = 0;

  /// `sessionDriver:didRegisterClientAndReturnError:`; false, here and below, cancels the session.
  virtual bool sessionDriverDidRegisterClient(LoomerSessionDriver& driver, String& error) = 0;
  /// `sessionDriver:didPullAndReturnError:`
  virtual bool sessionDriverDidPull(LoomerSessionDriver& driver, String& error) = 0;
  /// `sessionDriver:willFinishSessionAndReturnError:`
  virtual bool sessionDriverWillFinishSession(LoomerSessionDriver& driver, String& error) = 0;
  /// `sessionDriverWillCancelSession:`; what it stores with the client is kept though the session is rolled
  /// back.
  virtual void sessionDriverWillCancelSession(LoomerSessionDriver& driver) = 0;

  // What a client that keeps a history of its own can say as well. A file cannot, which the answers here
  // say.

  /// Whether what the client has read for this session is still what it holds, as far as it can tell. Asked
  /// once no other session can run any more.
  virtual bool isUpToDate() { return true; }
  /// Reads again what the client holds, because it is not up to date or another session of the same client
  /// came in between; the session is then registered and its mode asked for once more. False when it cannot,
  /// which cancels the session.
  virtual bool readAgain() { return false; }
  /// Whether the client keeps a history of its own, as the online service does:
  /// - It reports every change and every deletion since it was last asked, so that it need never be looked at
  ///   whole. The guard judges the deletions all the same.
  /// - It may be put back to an earlier state, so that what it held before is kept for a while.
  /// - Its ids are the records' own, the same in every store: a record is matched by its id alone, also after
  ///   it was deleted, and goes by it from then on.
  virtual bool keepsHistory() { return false; }
  /// The state to which it was put back since its last session, null when it was not. The same pointer at
  /// every call.
  virtual const EarlierState* wentBackTo() { return nullptr; }
  /// Called before the session finishes: the changes that it delivered go by this push id.
  virtual void willTakeChanges(const String& /*pushId*/) {}
  /// Whether the client has durably taken the changes of that push id; nothing when it cannot tell. Asked
  /// after a session of which nobody knows how it ended.
  virtual std::optional<bool> tookChanges(const String& /*pushId*/) { return std::nullopt; }
};

/// What a session did, in numbers.
struct LoomerSessionResult {
  std::size_t pushed = 0;     ///< records of the truth that it changed
  std::size_t pulled = 0;     ///< changes that the client took
  std::size_t conflicts = 0;  ///< values that both sides had changed, of which one gave way
};

/// Runs one session for a data source.
class LoomerSessionDriver {
 public:
  virtual ~LoomerSessionDriver() = default;

  /// `sessionDriverWithDataSource:` of the current engine. The data source must outlive the driver.
  static std::unique_ptr<LoomerSessionDriver> sessionDriverWithDataSource(
      LoomerSessionDriverDataSource& dataSource);

  /// The client that the session runs for, not owned (the manager owns it); null leaves it to the data
  /// source's identifier and description.
  virtual void _setClient(LoomerClient* client) = 0;
  /// The session's client; null before there is one.
  virtual LoomerClient* client() = 0;
  /// Runs the session. False when it did not succeed: `lastError` says why and nothing has changed.
  /// Exceptions of the data source pass through after the session was cancelled.
  virtual bool sync() = 0;
  /// Why the last `sync` answered false; absent after a success.
  virtual Message lastError() = 0;
  /// What the last `sync` did; nothing but zeros where that was none that succeeded.
  virtual LoomerSessionResult lastResult() = 0;
};

}  // namespace corvane
