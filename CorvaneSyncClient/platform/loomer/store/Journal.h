#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/loomer/records/Records.h"

namespace corvane::loomer {

/// A delivery of a session that was killed, which the client denies: it does not hold it, but others may have
/// learned of it before the client lost it, and have given it to the client again by the next session.
struct DeniedDelivery {
  String pushId;
  BaseDifference after;  ///< from the store's base to the one of a client that has taken it
};

/// How many of them are kept, the latest ones, and how many records they may name in all.
inline constexpr std::size_t kMostDenied = 4;
inline constexpr std::size_t kMostDeniedRecords = 20'000;

/// What a session has delivered to a client that is about to save it. It stands beside the store from before
/// the client saves until the engine has committed. Where it still stands at the next session, this one was
/// killed in between, and the client may hold what the store does not know of: the local ids of additions
/// above all, without which a record that the user has changed since could not be recognised.
struct Journal {
  String pushId;  ///< names the delivery; a fresh UUID
  // The session: the next one of that registration, over that base.
  Date registered;
  std::int64_t sessions = 0;
  std::optional<std::int64_t> syncedRevision;

  String knownPushId;        ///< of the newest delivery in `known`; absent when there is none
  BaseDifference known;      ///< from the store's base to the one that sessions killed before had left
  BaseDifference delivered;  ///< from there to the base of a client that has saved and changed nothing itself
  std::vector<DeniedDelivery> denied;  ///< of sessions killed before this one, the latest first
  /// The local ids that the client gave to the additions: nothing bore them before.
  std::vector<String> added;
};

/// The file of one client's journal: a property list, private to the user.
class JournalFile {
 public:
  /// The journal of the client with that number in the store at `storePath`.
  JournalFile(const std::string& storePath, std::int64_t client);

  /// Nothing when there is no journal, and when it cannot be read, which a line in the system log says: the
  /// store is right without it. A journal of the form that older versions wrote is read too.
  std::optional<Journal> read() const;
  /// Durable when it returns. Raises LoomerStoreException.
  void write(const Journal& journal) const;
  /// A journal that cannot be removed does no harm: it is of an earlier session for every later one.
  void remove() const noexcept;

 private:
  std::string _path;
  std::string _oldPath;  // of the older form
};

}  // namespace corvane::loomer
