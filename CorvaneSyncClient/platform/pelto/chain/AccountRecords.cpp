#include "CorvaneSyncClient/platform/pelto/chain/AccountRecords.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane::pelto::chain {

namespace {

constexpr std::int64_t kTombstonesForARecord = 4;

[[noreturn]] void failBeyondLimits(const ChainObjects& objects) {
  throw PlaceException(
      Message("Can't take what is kept in %1: it is more than an account may hold.", objects.whereabouts()));
}

std::vector<HubRecord> recordsIn(const std::string& contents, const ChainObjects& objects) {
  try {
    return readSegment(contents);
  } catch (const PlatformException& exception) {
    throw PlaceException(
        Message("Can't read records in %1: %2.", objects.whereabouts(), exception.message()));
  }
}

}  // namespace

void AccountRecords::takeSnapshot(const Link& checkpoint) {
  const std::vector<SegmentRef> segments = _objects.commit(checkpoint).snapshot->segments;
  _objects.readSegments(segments,
                        [this](const std::string& contents) { take(recordsIn(contents, _objects)); });
}

void AccountRecords::takeCommit(const Link& link) {
  const Commit commit = _objects.commit(link);
  take(commit.records);
  _objects.readSegments(commit.segments, [&](const std::string& contents) {
    std::vector<HubRecord> records = recordsIn(contents, _objects);
    for (HubRecord& each : records) each.revision = link.number;
    take(std::move(records));
  });
}

void AccountRecords::take(std::vector<HubRecord> records) {
  for (HubRecord& record : records) {
    _bytes += static_cast<std::int64_t>(textBytes(record));
    const auto [place, isNew] = _places.try_emplace(record.id, _records.size());
    if (isNew) {
      _records.push_back(std::move(record));
    } else {
      HubRecord& before = _records[place->second];
      _bytes -= static_cast<std::int64_t>(textBytes(before));
      before = std::move(record);
    }
  }
  const auto count = static_cast<std::int64_t>(_records.size());
  if (count > _most.records * (1 + kTombstonesForARecord) || _bytes > _most.bytes) failBeyondLimits(_objects);
}

std::int64_t AccountRecords::liveCount() const {
  return std::count_if(_records.begin(), _records.end(),
                       [](const HubRecord& record) { return !record.deleted; });
}

std::int64_t AccountRecords::liveBytes() const { return _bytes; }

}  // namespace corvane::pelto::chain
