#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane::pelto {

/// The name of every exception about the online service. The reason says what was tried, with which server,
/// what went wrong and what to do; never a password.
inline constexpr const char* DotPeltoException = "DotPeltoException";

/// The data class whose records the service keeps.
inline constexpr const char* kHubDataClass = "com.keldra.Bookmarks";

/// Bytes of a record's name and url together: the service takes none with more.
inline constexpr std::size_t kLongestHubRecord = 1 << 20;

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
  bool deleted = false;  ///< a tombstone: of the rest only the id counts
  /// Of the account when the record was written; only in what the service tells.
  std::int64_t revision = 0;
};

/// A state of an account: which account, its revision, and the pushId that the push to that revision bore.
/// Two states with one number but different pushIds are of different pasts: the service was restored from a
/// backup.
struct HubState {
  String account;  ///< an upper-case UUID, given when the account was made
  std::int64_t revision = 0;
  String pushId;  ///< an upper-case UUID; absent at revision 0
  friend bool operator==(const HubState&, const HubState&) = default;
};

/// What a computer learns at the beginning of an exchange.
struct RemoteChanges {
  HubState now;
  bool enabled = false;  ///< whether this computer is to sync the data class; when not, nothing else is read
  /// The newest of the states asked with that belongs to this account's past. Where it is not the first one,
  /// the service was put back to it, or to a later state that the computer has not seen; where there is none,
  /// the account is another one.
  std::optional<HubState> common;
  /// States between that one (or the account's beginning) and the present one, newest first: those just
  /// before the present one, and farther back one here and there.
  std::vector<HubState> past;
  /// Whether `records` are all live ones, rather than those that changed since the first state asked with.
  /// Where the service was put back, the tombstones of what was deleted since `common` are among them.
  bool whole = false;
  std::vector<HubRecord> records;  ///< folders and bookmarks in any order
  std::int64_t room = 0;           ///< how many live records more the account may hold
  std::int64_t roomForBytes = 0;   ///< and how many bytes of their names and addresses
};

/// What one computer gives: applied whole or not at all.
struct HubPush {
  HubState expected;  ///< the state that the changes were made from
  String id;          ///< a fresh upper-case UUID
  std::vector<HubRecord> records;
};

/// Of which of the past revisions between the two, without them, a computer is told: the newest 64, then the
/// one at each doubling of the distance from `now`. Descending.
std::vector<std::int64_t> sampledRevisions(std::int64_t since, std::int64_t now);

/// The versioned record store of one account at the online service. It merges nothing. Everything raises
/// DotPeltoException when the service cannot be reached, refuses, or does not answer in time.
class Hub {
 public:
  virtual ~Hub() = default;

  /// The account's state, and what changed since the first of `seen`, the states that the computer has seen,
  /// newest first (empty: none so far), all of one moment.
  virtual RemoteChanges remoteChanges(const std::vector<HubState>& seen) = 0;
  /// Makes the account's next revision of `push`, in one transaction. False, with nothing changed, when the
  /// account is not in the expected state any more.
  virtual bool push(const HubPush& push) = 0;
  /// Whether a push with that pushId became part of the account's past: tells how one ended whose end nobody
  /// heard.
  virtual bool hasPush(const String& pushId) = 0;

  /// The service's setting of this computer and account. A computer never heard of has everything off.
  virtual bool isEnabled(const String& dataClass) = 0;
  virtual void setEnabled(const String& dataClass, bool enabled) = 0;
};

}  // namespace corvane::pelto
