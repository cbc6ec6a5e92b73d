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

/// Records of an account, read from its chain: of each the newest version.
class AccountRecords {
 public:
  /// `objects` must outlive this object. Nothing beyond what an account may hold is taken, whatever the place
  /// sends; of tombstones four times as many as of records.
  explicit AccountRecords(ChainObjects& objects) : _objects(objects) {}

  /// Takes all of a checkpoint's snapshot in. Raises MissingObject, here and below, and PlaceException.
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
  std::vector<HubRecord> _records;
  std::unordered_map<String, std::size_t> _places;
  std::int64_t _bytes = 0;
};

}  // namespace corvane::pelto::chain
