#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::pelto::chain {

/// Of a commit's hash.
inline constexpr std::size_t kHashBytes = 32;
/// Slots of one number that may be passed by.
inline constexpr int kMostAttempts = 1000;

/// What stands for the hash of the commit before the first one.
std::string beginning();

/// Where a commit may be made: there is one slot after each commit, and further ones for when what lies there
/// is damaged for good.
struct Slot {
  std::int64_t number = 0;  ///< of the commit, from 1
  std::string after;        ///< hexadecimal digits of the first 16 bytes of the hash of the commit before
  int attempt = 0;          ///< how many slots of this number and `after` are passed by

  friend bool operator==(const Slot&, const Slot&) = default;
};

/// The slot after the commit of that number and hash; for the first one, `number` is 0 and `hash` the
/// beginning's.
Slot slotAfter(std::int64_t number, std::string_view hash, int attempt = 0);
/// "12-00ff…" and, where slots are passed by, "12-00ff…-1": an object's name without its folder.
std::string nameOf(const Slot& slot);
/// Absent for a name of another form.
std::optional<Slot> slotNamed(std::string_view name);

/// A state that the account had lost, and has grown out of again.
struct GivenAgain {
  std::int64_t number = 0;  ///< in the past that was lost
  std::string pushId;       ///< an upper-case UUID

  friend bool operator==(const GivenAgain&, const GivenAgain&) = default;
};

/// What a commit says of itself and of its place in the chain.
struct Link {
  std::int64_t number = 0;
  std::string hash;      ///< of its sealed bytes
  std::string previous;  ///< hash of the commit before
  int attempt = 0;       ///< of its slot
  std::string pushId;    ///< an upper-case UUID
  /// A commit that names a snapshot of the account's state before it.
  bool isCheckpoint = false;
  /// The last commit of a generation of the account's key, which hands the next key over.
  bool isLast = false;
  /// Of a checkpoint: the snapshot continues the states up to that number. Those from there to the
  /// checkpoint are no part of its history, because something of them is lost for good.
  std::int64_t keeps = 0;
  /// Of a checkpoint: whether all objects of the snapshot are at the place.
  bool isWhole = true;
  std::int64_t before = 0;    ///< the number of the checkpoint before; 0 when there is none
  std::int64_t tail = 0;      ///< objects to read for what came since the newest snapshot, this one included
  std::int64_t records = 0;   ///< at most as many live records does the account hold
  std::int64_t bytes = 0;     ///< at most as many bytes of names and addresses
  std::int64_t segments = 0;  ///< of the newest snapshot
  /// With this commit, newest first; with a checkpoint, all that the commits before it gave again.
  std::vector<GivenAgain> givesAgain = {};

  friend bool operator==(const Link&, const Link&) = default;
};

/// The name of the object that holds the commit.
std::string nameOf(const Link& link);

}  // namespace corvane::pelto::chain
