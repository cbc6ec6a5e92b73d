#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane::pelto {

/// The name of exceptions about the account at the online service. The reason says what was tried, what went
/// wrong and what to do; never a secret.
inline constexpr const char* DotPeltoException = "DotPeltoException";

/// The data class whose records the service keeps.
inline constexpr const char* kHubDataClass = "com.keldra.Bookmarks";

/// Bytes of a record's name and url together: the service takes none with more.
inline constexpr std::size_t kLongestHubRecord = 1 << 20;

/// Where a record's values come from: of each the id of the push that gave it first. Whoever writes the
/// record keeps those of the values that it leaves as they are, and of those that it gives to a service again
/// that lost them; who brings a deleted record back gives all of it anew. Absent where that is not known.
struct HubOrigins {
  String name;
  String url;
  String tabGroup;
  String parent;
  String place;  ///< among its siblings; a new number that leaves their order as it is changes nothing

  friend bool operator==(const HubOrigins&, const HubOrigins&) = default;
};

/// The members of HubOrigins.
inline constexpr std::array kHubOrigins = {&HubOrigins::name, &HubOrigins::url, &HubOrigins::tabGroup,
                                           &HubOrigins::parent, &HubOrigins::place};

/// One record as the service keeps it. Siblings are ordered by `position`, then by name, folders first, then
/// by id.
struct HubRecord {
  String id;            ///< an upper-case UUID, the same on every computer
  bool folder = false;  ///< else a bookmark
  String parent;        ///< the folder's id; absent directly under the root
  std::int32_t position = 0;
  String name;  ///< may be absent, here and below
  String url;
  bool tabGroup = false;
  bool special = false;
  bool deleted = false;  ///< a tombstone: of the rest only the id and `deletedBy` count
  /// The account's revision that wrote the record; only set in records that the service sends.
  std::int64_t revision = 0;
  HubOrigins origins = {};
  String deletedBy = {};  ///< the origin of a tombstone, as it were: the id of the push that gave it first
};

/// A state of an account: which account, its revision, and the id of the push that made that revision. Two
/// states with the same revision and different push ids belong to different histories: the service was
/// restored from a backup in between.
struct HubState {
  String account;  ///< an upper-case UUID, given when the account was made
  std::int64_t revision = 0;
  String pushId;  ///< an upper-case UUID; absent at revision 0
  /// Whether all three agree.
  friend bool operator==(const HubState&, const HubState&) = default;
};

/// What a computer learns at the beginning of an exchange.
struct RemoteChanges {
  HubState now;  ///< the account's present state
  /// Whether this computer syncs the data class. When it does not, nothing below is read.
  bool enabled = false;
  /// The newest of the states that were asked about which is part of the account's history. When it is not
  /// the first of them, the service was restored to it, or to a later state that the computer has not seen.
  /// Absent when the account shares no history with the computer.
  std::optional<HubState> common;
  /// The first of the states that were asked about whose changes a service that had lost them was given again
  /// (see `HubPush::givesAgain`), where it comes before `common` among them: what the account holds now has
  /// grown out of that state too, though not along one line.
  std::optional<HubState> givenAgain;
  /// The states between `common` (or the account's beginning) and `now`, newest first, as far back as the
  /// service knows them.
  std::vector<HubState> past;
  /// The states that were given again since `common`, the latest ones first.
  std::vector<HubState> pastGivenAgain;
  /// Whether `records` holds all live records, and not only those changed since the first state asked about.
  /// When there is a first state asked about and it is not `common`, it also holds all tombstones that there
  /// are.
  bool whole = false;
  std::vector<HubRecord> records;  ///< folders and bookmarks in any order
  std::int64_t room = 0;           ///< how many more live records the account may hold
  std::int64_t roomForBytes = 0;   ///< how many more bytes of names and addresses
};

/// The changes of one computer, applied as a whole or not at all.
struct HubPush {
  HubState expected;  ///< the state that the changes are based on
  String id;          ///< a fresh upper-case UUID
  std::vector<HubRecord> records;
  /// States that a restored service may have lost, and out of which the account has grown again with this
  /// push: what they changed is in it or was there already. They become part of the account's history, those
  /// that are not yet.
  std::vector<HubState> givesAgain = {};
};

/// What became of a push.
struct HubPushed {
  enum class Outcome {
    done,
    overtaken,  ///< nothing has changed: the account is no longer in the expected state
    full,       ///< nothing has changed: there is no room at the service
  };
  Outcome outcome = Outcome::overtaken;
  HubState
      now;  ///< when it is done, the account's state since then: of the push, or newer with the same records

  explicit operator bool() const { return outcome == Outcome::done; }
};

/// The versioned record store of one account at the online service. It merges nothing. Every function raises
/// PlatformException when the service cannot be reached, refuses, or does not answer in time.
class Hub {
 public:
  virtual ~Hub() = default;

  /// The account's state and what has changed since the first of `seen`, read at one moment. `seen` holds the
  /// states that the computer has seen, newest first; empty before the first exchange.
  virtual RemoteChanges remoteChanges(const std::vector<HubState>& seen) = 0;
  /// Makes `push` the account's next revision, as a whole or not at all.
  virtual HubPushed push(const HubPush& push) = 0;
  /// Whether the push with that id is part of the account's history, be it as one given again. Answers how a
  /// push ended when the connection was lost before the answer arrived.
  virtual bool hasPush(const String& pushId) = 0;
};

}  // namespace corvane::pelto
