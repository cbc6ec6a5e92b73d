#pragma once

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/chain/ChainObjects.h"

namespace corvane::pelto::chain {

/// More live records no account holds.
inline constexpr std::int64_t kMostAccountRecords = 4'000'000;
/// Nor more bytes of their names and addresses: 4 GiB.
inline constexpr std::int64_t kMostAccountBytes = std::int64_t{4} << 30;

/// What an account may hold.
struct AccountLimits {
  std::int64_t records = kMostAccountRecords;
  std::int64_t bytes = kMostAccountBytes;
};

/// Records of an account, read from its chain: of each the newest version. They come page by page, a page
/// being the records in a commit or in a segment, eight pages at a time; no more pages are asked for once
/// there is more than an account may hold, whatever the place has. Of tombstones there may be four times as
/// many as of records.
class AccountRecords {
 public:
  /// `objects` must outlive this object.
  explicit AccountRecords(ChainObjects& objects, AccountLimits most = {}) : _objects(objects), _most(most) {}

  /// Takes all of a checkpoint's snapshot in. Raises MissingObject, here and below, and PlaceException, also
  /// for more than an account may hold.
  void takeSnapshot(const Link& checkpoint);
  /// Takes a commit's records in.
  void takeCommit(const Link& link);

  const std::vector<HubRecord>& records() const { return _records; }
  std::int64_t liveCount() const;
  std::int64_t liveBytes() const;
  std::vector<HubRecord> release() { return std::move(_records); }

 private:
  void take(std::vector<HubRecord> records);

  ChainObjects& _objects;
  AccountLimits _most;
  std::vector<HubRecord> _records;
  std::unordered_map<String, std::size_t> _places;
  std::int64_t _bytes = 0;
};

}  // namespace corvane::pelto::chain
