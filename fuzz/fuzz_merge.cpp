// Any truth, any base and any client merge: the bytes become records that point anywhere, cycles, missing
// parents, doubled identifiers, equal places and senseless values included, and what comes out must be sound
// all the same.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "fuzz/Require.h"

namespace corvane::loomer {
namespace {

// Numbers and values from bytes; zeros when they are used up.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : _data(data), _size(size) {}

  unsigned below(unsigned limit) { return next() % limit; }
  bool flag() { return next() & 1U; }

  // Mostly small; now and then at the ends of the range, where sums overflow.
  std::int64_t number(std::int64_t least, std::int64_t greatest) {
    const unsigned byte = next();
    if (byte >= 250) return byte % 2 ? greatest : least;
    if (byte >= 246) return byte % 2 ? greatest - 1 : least + 1;
    return static_cast<std::int64_t>(byte) - 4;
  }

  String text(const char* prefix) {
    const unsigned byte = next() % 6;
    return byte == 0 ? String() : String(prefix + std::to_string(byte));
  }

  Content content() {
    Content content{text("t"), text("http://"), flag(), flag()};
    const unsigned title = below(8);
    if (title == 0) content.name = String("BookmarksBar");
    if (title == 1) content.name = String("BookmarksMenu");
    return content;
  }

  Entity entity() { return flag() ? Entity::folder : Entity::bookmark; }

 private:
  unsigned next() {
    if (_size == 0) return 0;
    --_size;
    return *_data++;
  }

  const std::uint8_t* _data;
  std::size_t _size;
};

constexpr unsigned kIds = 12;
constexpr unsigned kRecords = 12;

// Field by field: in what order bytes are taken is what files of the corpus mean.
TruthRecord truthRecord(Bytes& bytes) {
  TruthRecord record;
  record.id = bytes.below(kIds) - RecordId{1};
  record.entity = bytes.entity();
  record.parent = bytes.below(kIds) - RecordId{1};
  record.place =
      bytes.number(std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max());
  record.content = bytes.content();
  record.revision = static_cast<std::int64_t>(bytes.below(4));
  record.deleted = bytes.below(4) == 0;
  return record;
}

std::int32_t position(Bytes& bytes) {
  return static_cast<std::int32_t>(
      bytes.number(std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

String localId(Bytes& bytes) {
  const unsigned id = bytes.below(kIds + 2);
  if (id == kIds) return String();
  return id > kIds ? String("Root") : String("u" + std::to_string(id));
}

BaseRecord baseRecord(Bytes& bytes) {
  BaseRecord record;
  record.localId = localId(bytes);
  record.record = bytes.below(kIds) - RecordId{1};
  record.entity = bytes.entity();
  record.parent = bytes.below(kIds) - RecordId{1};
  record.position = position(bytes);
  record.content = bytes.content();
  record.refusedRevision = static_cast<std::int64_t>(bytes.below(4));
  record.notHeld = bytes.below(4) == 0;
  return record;
}

MergeInput inputFrom(Bytes bytes) {
  MergeInput input;
  const unsigned flags = bytes.below(256);
  input.refresh = flags & 1U;
  input.replace = (flags & 14U) == 14U;
  input.nextRecord = flags & 16U ? 1 : kIds;
  input.revision = 3;
  for (unsigned i = bytes.below(kRecords); i > 0; --i) input.truth.push_back(truthRecord(bytes));
  for (unsigned i = bytes.below(kRecords); i > 0; --i) input.base.push_back(baseRecord(bytes));
  if (flags & 32U) return input;
  input.client.emplace();
  for (unsigned i = bytes.below(kRecords); i > 0; --i) {
    input.client->push_back({.localId = localId(bytes),
                             .parentLocalId = localId(bytes),
                             .entity = bytes.entity(),
                             .position = position(bytes),
                             .content = bytes.content()});
  }
  return input;
}

using Records = std::map<RecordId, TruthRecord>;

// The truth after the merge; of doubled identifiers the first counts.
Records mergedTruth(const MergeInput& input, const MergeResult& result) {
  Records records;
  for (const TruthRecord& record : input.truth) {
    if (record.id > kRoot) records.emplace(record.id, record);
  }
  std::set<RecordId> changed;
  for (const TruthChange& change : result.truthChanges) {
    require(changed.insert(change.after.id).second, "a record changes once");
    require(change.before.has_value() == records.contains(change.after.id),
            "new records alone have no before");
    require(change.after.revision == input.revision, "what changes bears the session's revision");
    records[change.after.id] = change.after;
  }
  return records;
}

void requireForest(const Records& records) {
  std::set<std::pair<RecordId, std::int64_t>> places;
  for (const auto& [id, record] : records) {
    if (record.deleted) continue;
    require(places.insert({record.parent, record.place}).second, "no two siblings share a place");
    std::size_t steps = 0;
    for (RecordId at = record.parent; at != kRoot;) {
      const auto parent = records.find(at);
      require(parent != records.end() && !parent->second.deleted, "parents exist and live");
      require(parent->second.entity == Entity::folder, "parents are folders");
      require(++steps <= records.size(), "there are no cycles");
      at = parent->second.parent;
    }
  }
}

// What the client was told to hold, by record: the changes are sound in the order of delivery.
void requireClientChanges(const MergeInput& input, const MergeResult& result) {
  std::unordered_map<String, Entity> held;
  if (input.client && !result.deleteAllFirst) {
    for (const ClientRecord& record : *input.client) held.emplace(record.localId, record.entity);
  }
  if (!input.client && !result.deleteAllFirst) {
    for (const BaseRecord& record : input.base) held.emplace(record.localId, record.entity);
  }
  std::map<RecordId, String> localIds;
  for (const BaseRecord& base : result.base) {
    if (!base.notHeld && base.localId) localIds.emplace(base.record, base.localId);
  }
  std::set<RecordId> told;
  std::set<RecordId> given;
  std::unordered_set<String> gone;
  bool bookmarksCame = false;
  for (const ClientChange& change : result.clientChanges) {
    require(change.record > kRoot && change.localId != "Root", "the root is not delivered");
    require(told.insert(change.record).second, "one change for one record");
    bookmarksCame = bookmarksCame || change.entity == Entity::bookmark;
    require(change.entity == Entity::bookmark || !bookmarksCame, "folders come before bookmarks");
    require(static_cast<bool>(change.localId) == (change.type != LoomerChangeTypeAdd),
            "additions are unknown");
    if (change.localId) require(held.contains(change.localId), "only what the client holds is changed");
    if (change.type == LoomerChangeTypeDelete) {
      gone.insert(change.localId);
      continue;
    }
    require(change.entity == Entity::bookmark || change.content.name, "no nameless folder is delivered");
    if (change.entity == Entity::folder && change.type == LoomerChangeTypeAdd) given.insert(change.record);
    if (change.parent == kRoot || given.contains(change.parent)) continue;
    const auto parent = localIds.find(change.parent);
    require(parent != localIds.end() && held.contains(parent->second) && !gone.contains(parent->second),
            "parents are held or were given before");
    require(held.at(parent->second) == Entity::folder, "parents at the client are folders");
  }
}

void requireBase(const MergeResult& result, const Records& truth) {
  std::set<RecordId> records;
  std::unordered_set<String> localIds;
  for (const BaseRecord& base : result.base) {
    require(records.insert(base.record).second, "a record is in the base once");
    require(!base.localId || localIds.insert(base.localId).second, "a local id is in the base once");
    require(truth.contains(base.record), "the base knows records of the truth only");
    require(base.entity == truth.at(base.record).entity, "the base and the truth agree on the kind");
    require(!truth.at(base.record).deleted || base.refusedRevision != 0, "what is dead is not in the base");
  }
}

void requireSameAgain(const MergeInput& input, const MergeResult& first) {
  const MergeResult second = merge(input);
  require(second.base == first.base && second.truthChanges.size() == first.truthChanges.size() &&
              second.clientChanges.size() == first.clientChanges.size(),
          "the same input merges to the same result");
}

}  // namespace
}  // namespace corvane::loomer

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  using namespace corvane::loomer;
  const MergeInput input = inputFrom(Bytes(data, size));
  const MergeResult result = merge(input);
  require(result.deleteAllFirst == input.replace, "a client is emptied only to be given everything anew");
  require(result.deletedByAbsence == 0 || (input.client && !input.refresh && !input.replace),
          "only a session with records deletes what they lack");
  const Records truth = mergedTruth(input, result);
  requireForest(truth);
  requireClientChanges(input, result);
  requireBase(result, truth);
  requireSameAgain(input, result);
  return 0;
}
