#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/loomer/records/Records.h"

namespace corvane::loomer {

/// From one base of a client to another.
struct BaseDifference {
  std::vector<BaseRecord> held;  ///< records of which the other says something else, by ascending record
  std::vector<RecordId> gone;    ///< records that the other does not name, ascending
  bool isEmpty() const { return held.empty() && gone.empty(); }
};

/// What a session has handed down to a client, which is about to save it.
struct HandedDown {
  String mark;  ///< names this handing down; a fresh UUID
  // Which session this is: the next one of that registration, over that base.
  Date registered;
  std::int64_t sessions = 0;
  std::optional<std::int64_t> syncedRevision;

  String knownMark;       ///< of the newest handing down in `known`; absent where there is none
  BaseDifference known;   ///< from the store's base to the one that sessions killed before had left
  BaseDifference handed;  ///< from there to the one that the client has once it has saved
  /// The client's own ids of the records that it was given: nothing bore them before.
  std::vector<String> added;
};

/// The file beside the store in which a session notes what it has handed down, durably, before the client
/// saves; it goes with the commit. Where it still stands, a session was killed in between, and the client may
/// hold what the store does not know of: local ids of additions above all, by which alone a record is met
/// again that the user has changed since.
///
/// It is a small SQLite database, so that it is there whole or not at all, at any size.
class HandedDownFile {
 public:
  HandedDownFile(const std::string& storePath, std::int64_t client);

  /// Nothing where there is no such file, or none that can be read: the store is right without it.
  std::optional<HandedDown> read() const;
  /// Durable when it returns. Raises LoomerStoreException.
  void write(const HandedDown& handedDown) const;
  /// A file that cannot be removed is of an earlier session for every later one, which does not use it.
  void remove() const noexcept;

 private:
  std::string _path;
};

}  // namespace corvane::loomer
