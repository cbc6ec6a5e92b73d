#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/chain/Link.h"
#include "CorvaneSyncClient/platform/pelto/seal/GenerationChange.h"

// What the objects of a chain hold before they are sealed: binary property lists. Readers take hostile input:
// every type, length, count and range is checked, and nothing is allocated by a number alone.

namespace corvane::pelto::chain {

/// Contents that are none. The reason says what is wrong with them.
class ContentsException : public PlatformException {
 public:
  explicit ContentsException(Message reason) : PlatformException("ContentsException", std::move(reason)) {}
};

/// Contents of a form that this version of the program does not know.
class NewerContentsException : public PlatformException {
 public:
  NewerContentsException()
      : PlatformException(
            "NewerContentsException",
            Message("a newer version of this program has written there. Install it here, too")) {}
};

/// Records in one object, and bytes of their names and addresses, after which the next record goes into
/// another object. One record alone may have more bytes.
inline constexpr std::size_t kSegmentRecords = 2'000;
inline constexpr std::size_t kSegmentBytes = 4U << 20;
/// Records with fewer bytes than this in all, and no more than `kSegmentRecords`, stand in the commit itself.
inline constexpr std::size_t kInlineBytes = 256U << 10;
/// No contents are longer.
inline constexpr std::size_t kMostContents = 16U << 20;

/// An object that a commit names.
struct SegmentRef {
  std::string name;  ///< without its folder: 32 hexadecimal digits
  std::string hash;  ///< of its sealed bytes

  friend bool operator==(const SegmentRef&, const SegmentRef&) = default;
};

/// A state that was part of an account's history.
struct PastState {
  std::int64_t number = 0;
  std::string pushId;  ///< an upper-case UUID
  Date date;           ///< when it came to the place, by the place's clock

  friend bool operator==(const PastState&, const PastState&) = default;
};

/// The account's state before a checkpoint.
struct Snapshot {
  SegmentRef history;
  std::vector<SegmentRef> segments;
  std::int64_t forgotten = 0;  ///< tombstones up to this revision are no longer in it

  friend bool operator==(const Snapshot&, const Snapshot&) = default;
};

/// What a commit holds.
struct Commit {
  Link link;      ///< without `hash`, `attempt` and `isWhole`, which it cannot know of itself
  String writer;  ///< the computer's identifier
  Date time;      ///< by the writer's clock, for people
  std::vector<HubRecord> records;
  std::vector<SegmentRef> segments;        ///< with further records
  std::optional<Snapshot> snapshot;        ///< of a checkpoint
  std::optional<GenerationChange> change;  ///< of a generation's last commit
};

/// The number of bytes that count of a record.
std::size_t textBytes(const HubRecord& record);
/// `records` in parts that fit one object each, in their order.
std::vector<std::vector<HubRecord>> segmented(std::vector<HubRecord> records);

std::string writeCommit(const Commit& commit);
/// Raises ContentsException and NewerContentsException, here and below.
Commit readCommit(std::string_view contents);

/// Records of one revision each, as `HubRecord::revision` says.
std::string writeSegment(const std::vector<HubRecord>& records);
std::vector<HubRecord> readSegment(std::string_view contents);

/// States by descending number.
std::string writeHistory(const std::vector<PastState>& states);
std::vector<PastState> readHistory(std::string_view contents);

}  // namespace corvane::pelto::chain
