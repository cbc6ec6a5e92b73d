#include "CorvaneSyncClient/platform/loomer/session/Delivery.h"

#include <optional>

#include "CorvaneSyncClient/platform/foundation/HashIndex.h"
#include "CorvaneSyncClient/platform/foundation/Optional.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionCancelled.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

namespace {

class Delivering {
 public:
  Delivering(LoomerSessionDriverDataSource& dataSource, const RecordSchema& schema, const Plan& plan,
             const std::unordered_map<RecordId, String>& identifiers)
      : _dataSource(dataSource),
        _schema(schema),
        _changes(plan.result.clientChanges),
        _base(plan.result.base),
        _identifiers(identifiers) {
    if (_identifiers.empty()) return;
    _placesOfIds.reserve(_base.size());
    for (const BaseRecord& each : _base) {
      if (each.localId && !each.notHeld && !isInUse(each.localId)) use(each.localId);
    }
  }

  void deleteAll() {
    for (const EntitySchema& entity : _schema.entities) {
      String error;
      if (_dataSource.deleteAllRecordsForEntityName(entity.name, error) && !error) continue;
      throw SessionCancelled(
          sentences(Message("The client could not delete all records of %1 to be given the agreed ones: %2.",
                            entity.name.view(), reasonGiven(error)),
                    nothingChanged()));
    }
  }

  Delivery deliverChanges() {
    for (const ClientChange& change : _changes) {
      checkTime();
      offer(change);
    }
    return std::move(_delivery);
  }

 private:
  void offer(const ClientChange& change) {
    if (isWithheld(change)) {
      _delivery.withheld.insert(change.record);
      return;
    }
    if (isIdentifierInUse(change)) return refuse(change);
    String localId;
    switch (apply(change, localId)) {
      case LoomerChangeAccepted:
        return accept(change, localId);
      case LoomerChangeRefused:
      case LoomerChangeIgnored:
        return refuse(change);
      default:
        cancel(change, Message("it answered with an error"));
    }
  }

  bool isWithheld(const ClientChange& change) const {
    if (change.type == LoomerChangeTypeDelete) return false;
    if (change.parent != kRoot && !localIdOf(change.parent)) return true;
    return _refusedFolder && change.moves && change.entity == Entity::folder;
  }

  // Absent for a folder that the client does not hold.
  String localIdOf(RecordId folder) const {
    const auto added = _delivery.localIds.find(folder);
    if (added != _delivery.localIds.end()) return added->second;
    const BaseRecord* const held = findRecord(_base, folder);
    return held && !held->notHeld ? held->localId : String();
  }

  // Whether another record bears the id that all computers know the new record by, as after somebody made a
  // folder of a bookmark.
  bool isIdentifierInUse(const ClientChange& change) const {
    return change.type == LoomerChangeTypeAdd && _dataSource.keepsHistory() &&
           isInUse(_identifiers.at(change.record));
  }

  bool isInUse(const String& localId) const {
    const auto isIt = [&](std::uint32_t place) { return _idsInUse[place] == localId; };
    return _placesOfIds.find(localId.hash(), isIt) != HashIndex::kNowhere;
  }

  void use(const String& localId) {
    _placesOfIds.enter(localId.hash(), _idsInUse.size());
    _idsInUse.push_back(localId);
  }

  int apply(const ClientChange& change, String& localId) {
    const EntitySchema& schema = _schema.of(change.entity);
    std::optional<Dictionary> record;
    if (change.type != LoomerChangeTypeDelete) {
      const String parent = change.parent == kRoot ? String() : localIdOf(change.parent);
      record = recordDictionary(schema, change.content, change.position, parent);
    }
    const bool addition = change.type == LoomerChangeTypeAdd;
    const String identifier = addition ? _identifiers.at(change.record) : change.localId;
    String remapped, error;
    const int answer = _dataSource.applyChange(LoomerChange(change.type, identifier, record), schema.name,
                                               remapped, pointerTo(record), error);
    if (error) cancel(change, reasonGiven(error));
    if (addition) localId = remapped ? remapped : identifier;
    return answer;
  }

  void accept(const ClientChange& change, const String& localId) {
    if (change.type != LoomerChangeTypeAdd) return;
    if (localId.empty() || localId == LoomerRootIdentifier || isInUse(localId)) {
      cancel(change, Message("it handed back the identifier \"%1\", which is in use", localId.view()));
    }
    use(localId);
    _delivery.localIds.emplace(change.record, localId);
  }

  void refuse(const ClientChange& change) {
    _delivery.refused.insert(change.record);
    if (change.entity == Entity::folder) _refusedFolder = true;
  }

  void checkTime() const {
    if (!(Platform::current().clock.now().seconds - _began > _timeout)) return;
    throw SessionCancelled(Message::counted(
        wholeSeconds(_timeout),
        "The client took longer than %1 second to take the changes in. Nothing was changed; sync again when "
        "the computer is less busy.",
        "The client took longer than %1 seconds to take the changes in. Nothing was changed; sync again when "
        "the computer is less busy."));
  }

  [[noreturn]] void cancel(const ClientChange& change, const Message& what) const {
    const MessageText<3> problem =
        change.type == LoomerChangeTypeAdd
            ? MessageText<3>("The client could not take the addition of record %1 (%2): %3.")
        : change.type == LoomerChangeTypeModify
            ? MessageText<3>("The client could not take the change of record %1 (%2): %3.")
            : MessageText<3>("The client could not take the deletion of record %1 (%2): %3.");
    throw SessionCancelled(sentences(
        Message(problem, std::to_string(change.record), change.content.name.view(), what), nothingChanged()));
  }

  LoomerSessionDriverDataSource& _dataSource;
  const RecordSchema& _schema;
  const std::vector<ClientChange>& _changes;
  const std::vector<BaseRecord>& _base;  // as the plan expects it
  const std::unordered_map<RecordId, String>& _identifiers;
  const double _timeout = _dataSource.sessionPullChangesTimeout();  // seconds
  const double _began = Platform::current().clock.now().seconds;
  std::vector<String> _idsInUse;  // local ids, each once, when something is added
  HashIndex _placesOfIds;
  bool _refusedFolder = false;
  Delivery _delivery;
};

}  // namespace

Delivery deliver(LoomerSessionDriverDataSource& dataSource, const RecordSchema& schema, const Plan& plan,
                 const std::unordered_map<RecordId, String>& identifiers) {
  if (!plan.delivers()) return {};
  Delivering delivering(dataSource, schema, plan, identifiers);
  if (plan.result.deleteAllFirst) delivering.deleteAll();
  Delivery delivery = delivering.deliverChanges();
  delivery.pushId = Platform::current().uuids.newUuid();
  dataSource.willTakeChanges(delivery.pushId);
  return delivery;
}

}  // namespace corvane::loomer
