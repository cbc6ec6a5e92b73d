#include "CorvaneSyncClient/platform/loomer/session/RecordIntake.h"

#include <unordered_map>

#include "CorvaneSyncClient/platform/foundation/HashIndex.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionCancelled.h"

namespace corvane::loomer {

namespace {

class Intake {
 public:
  Intake(LoomerSessionDriverDataSource& dataSource, bool changedOnly)
      : _dataSource(dataSource), _changedOnly(changedOnly) {}

  void take(const EntitySchema& schema) {
    const auto enterRecord = [&](const String& localId, const Dictionary& record) {
      if (!(localId == LoomerRootIdentifier)) enter(schema, localId, record);
    };
    if (!_changedOnly && _dataSource.giveRecords(schema.name, enterRecord)) return;
    bool moreComing = false;
    do {
      moreComing = false;
      for (const auto& [localId, value] : ask(schema, moreComing)) {
        if (const auto* record = value.as<Dictionary>()) enterRecord(localId, *record);
      }
    } while (moreComing);
  }

  std::vector<ClientRecord> records;

 private:
  Dictionary ask(const EntitySchema& schema, bool& moreComing) {
    String error;
    Dictionary answer = _changedOnly ? _dataSource.changedRecordsForEntityName(schema.name, moreComing, error)
                                     : _dataSource.recordsForEntityName(schema.name, moreComing, error);
    if (!error) return answer;
    throw SessionCancelled(sentences(
        Message("The client could not give its records of %1: %2.", schema.name.view(), reasonGiven(error)),
        nothingChanged()));
  }

  void enter(const EntitySchema& schema, const String& localId, const Dictionary& dictionary) {
    const std::uint32_t known =
        _places.find(localId.hash(), [&](std::uint32_t place) { return records[place].localId == localId; });
    if (known == HashIndex::kNowhere) {
      _places.enter(localId.hash(), records.size());
      records.push_back(clientRecord(schema, localId, dictionary));
    } else if (records[known].entity == schema.entity) {
      records[known] = clientRecord(schema, localId, dictionary);
    } else {
      throw SessionCancelled(Message(
          "The client gave the identifier %1 to a folder and to a bookmark. Nothing was changed; give "
          "one of the two another identifier and sync again.",
          localId.view()));
    }
  }

  LoomerSessionDriverDataSource& _dataSource;
  bool _changedOnly;
  HashIndex _places;  // in `records`, by local id
};

}  // namespace

std::vector<ClientRecord> takeRecords(LoomerSessionDriverDataSource& dataSource, const RecordSchema& schema,
                                      bool changedOnly) {
  Intake intake(dataSource, changedOnly);
  for (const EntitySchema& entity : schema.entities) intake.take(entity);
  return std::move(intake.records);
}

std::vector<ClientRecord> clientTree(const std::vector<BaseRecord>& base,
                                     const std::vector<ClientRecord>& changed) {
  std::unordered_map<RecordId, String> localIds;
  for (const BaseRecord& each : base) {
    if (!each.notHeld) localIds.emplace(each.record, each.localId);
  }
  std::vector<ClientRecord> tree;
  std::unordered_map<String, std::size_t> places;
  for (const BaseRecord& each : base) {
    if (each.notHeld) continue;
    const auto parent = localIds.find(each.parent);
    places.emplace(each.localId, tree.size());
    tree.push_back({each.localId, parent == localIds.end() ? String() : parent->second, each.entity,
                    each.position, each.content});
  }
  for (const ClientRecord& each : changed) {
    const auto known = places.find(each.localId);
    if (known == places.end()) {
      tree.push_back(each);
    } else {
      tree[known->second] = each;
    }
  }
  return tree;
}

}  // namespace corvane::loomer
