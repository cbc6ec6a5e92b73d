#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/loomer/hub/OriginTable.h"
#include "CorvaneSyncClient/platform/loomer/hub/PushOrigins.h"
#include "CorvaneSyncClient/platform/loomer/hub/PushTable.h"
#include "CorvaneSyncClient/platform/loomer/session/RecordIntake.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"
#include "CorvaneSyncClient/platform/loomer/store/Journal.h"
#include "CorvaneSyncClient/platform/loomer/store/LogPruning.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

namespace {

using pelto::HubOrigins;
using pelto::HubRecord;

constexpr const char* kLeftOutKey = "left out";
constexpr const char* kPostponedKey = "postponed";
constexpr const char* kGivesAgainKey = "gives again";
constexpr const char* kPartedKey = "parted";
// States that one push gives again.
constexpr std::size_t kMostGivenAgain = 1'000;
constexpr std::size_t kFewFormerRecords = 10'000;
constexpr std::size_t kRecordsAtOnce = 10'000;
constexpr double kBeginTimeoutSeconds = 60.0;
// Changes are only collected. What takes time is the push, which has timeouts of its own.
constexpr double kPullTimeoutSeconds = 3600.0;

Entity entityOf(const HubRecord& record) { return record.folder ? Entity::folder : Entity::bookmark; }

Dictionary dictionaryOf(const EntitySchema& schema, const HubRecord& record) {
  const Content content{record.name, record.url, record.tabGroup, record.special};
  return recordDictionary(schema, content, record.position, record.parent);
}

HubRecord hubRecord(const ClientRecord& record) {
  return {.id = record.localId,
          .folder = record.entity == Entity::folder,
          .parent = record.parentLocalId,
          .position = record.position,
          .name = record.content.name,
          .url = record.content.url,
          .tabGroup = record.content.tabGroup,
          .special = record.content.special};
}

std::unordered_map<String, HubRecord> hubRecords(const std::vector<BaseRecord>& base) {
  std::unordered_map<String, HubRecord> records;
  for (const ClientRecord& each : clientTree(base, {})) records.emplace(each.localId, hubRecord(each));
  return records;
}

// Takes in what a killed session pushed, if only for the service to lose it.
void takeOver(const BaseDifference& difference, const String& pushId, std::vector<BaseRecord>& base,
              std::unordered_map<String, HubRecord>& records) {
  base = withDifference(difference, base);
  std::unordered_map<String, HubRecord> after = hubRecords(base);
  for (auto& [id, record] : after) {
    const auto before = records.find(id);
    record.origins = {pushId, pushId, pushId, pushId, pushId};
    if (before == records.end()) continue;
    const auto keep = [&, &record = record](auto HubRecord::*value, String HubOrigins::*origin) {
      if (record.*value == before->second.*value) record.origins.*origin = before->second.origins.*origin;
    };
    keep(&HubRecord::name, &HubOrigins::name);
    keep(&HubRecord::url, &HubOrigins::url);
    keep(&HubRecord::tabGroup, &HubOrigins::tabGroup);
    keep(&HubRecord::parent, &HubOrigins::parent);
    keep(&HubRecord::position, &HubOrigins::place);
  }
  records = std::move(after);
}

}  // namespace

bool leftOutOfHub(LoomerClient& client) { return client.objectForKey(kLeftOutKey).has_value(); }

bool offersAgainToHub(LoomerClient& client, std::int64_t room) {
  return client.objectForKey(kPostponedKey) || (room > 0 && leftOutOfHub(client));
}

bool takesInFirst(LoomerClient& client, const HubPast& past, const pelto::RemoteChanges& remote) {
  const bool hasLost =
      (!past.empty() && !past.goesOnWith(remote)) || client.objectForKey(kGivesAgainKey).has_value();
  return !remote.records.empty() && !hasLost;
}

HubClient::HubClient(TruthStore& store, pelto::Hub& hub, HubPast past, pelto::RemoteChanges remote,
                     std::size_t mostRecords)
    : _store(store),
      _hub(hub),
      _schema(readRecordSchema({bookmarksSchemaUrl()})),
      _past(std::move(past)),
      _remote(std::move(remote)),
      _mostRecords(mostRecords) {
  if (!_past.empty() && !_past.goesOnWith(_remote)) findEarlierState();
}

// What changed at the service since the newest state that both sides know.
void HubClient::findEarlierState() {
  _earlier.emplace();
  const std::int64_t revision = _remote.common ? _remote.common->revision : 0;
  _earlier->session = _past.sessionInCommon(_remote);
  for (const HubRecord& record : _remote.records) {
    if (record.revision > revision) _earlier->changed.insert(record.id);
  }
}

std::vector<String> HubClient::entityNamesToSync() {
  return {LoomerEntity_Bookmarks_Folder, LoomerEntity_Bookmarks_Bookmark};
}

int HubClient::preferredSyncModeForEntityName(const String&) {
  if (_past.empty()) return LoomerSyncModeRefresh;
  const bool changed = _remote.whole || !_remote.records.empty() || _offersAgain;
  return changed ? LoomerSyncModeSlow : LoomerSyncModeFast;
}

double HubClient::sessionBeginSessionTimeout() { return kBeginTimeoutSeconds; }

double HubClient::sessionPullChangesTimeout() { return kPullTimeoutSeconds; }

bool HubClient::sessionDriverDidRegisterClient(LoomerSessionDriver& driver, String&) {
  const auto state = ClientTable(_store).find(kHubClientIdentifier);
  _client = state ? state->id : 0;
  _session = state ? state->sessions + 1 : 1;
  _offersAgain = offersAgainToHub(*driver.client(), _remote.room);
  readWhatWasLost(*driver.client());
  if (_earlier) tellAges();
  askForPushes();
  return true;
}

void HubClient::readWhatWasLost(LoomerClient& client) {
  const auto session = [&](const char* key) {
    const std::optional<Value> value = client.objectForKey(key);
    return value && value->as<std::int64_t>() ? *value->as<std::int64_t>() : 0;
  };
  _lostSession = _earlier ? _session - 1 : session(kGivesAgainKey);
  _partedSession = _earlier ? _earlier->session : session(kPartedKey);
  if (_lostSession == 0) return;
  OriginTable origins(_store, _client);
  _knownOrigins = origins.readAll();
  _knownDeletions = origins.readDeletions();
  readPushes();
}

void HubClient::readPushes() {
  _knownPushes = PushTable(_store, _client).readAll();
  // A store of before they were kept knows these alone.
  for (const pelto::HubState& each : _past.states()) _knownPushes.insert(each.pushId);
}

// Of a value that the service holds. What comes from a push of which the base has known nothing is news,
// whichever past that push was part of.
Age HubClient::ageOf(const String& origin) const {
  if (!origin) return Age::unknown;
  return _knownPushes.contains(origin) ? Age::old : Age::news;
}

bool HubClient::hasNews(const HubOrigins& origins) const {
  return std::any_of(pelto::kHubOrigins.begin(), pelto::kHubOrigins.end(),
                     [&](String HubOrigins::*each) { return isNews(origins.*each); });
}

void HubClient::tellAges() {
  for (const HubRecord& record : _remote.records) {
    if (record.deleted) {
      if (ageOf(record.deletedBy) == Age::old) _earlier->oldDeletions.insert(record.id);
      continue;
    }
    const auto age = [&](const String& origin) {
      return !origin || _earlier->changed.contains(record.id) ? ageOf(origin) : Age::old;
    };
    // What lives here again is given as a whole, lest others who know of the deletion give that again.
    if (_knownDeletions.contains(record.id)) _earlier->outdated.insert(record.id);
    const HubOrigins& held = record.origins;
    _earlier->ages.emplace(record.id, Ages{age(held.name), age(held.url), age(held.tabGroup),
                                           age(held.parent), age(held.place)});
    const auto known = _knownOrigins.find(record.id);
    if (known == _knownOrigins.end()) continue;
    const bool isOutdated =
        std::any_of(pelto::kHubOrigins.begin(), pelto::kHubOrigins.end(), [&](String HubOrigins::*each) {
          return known->second.*each && held.*each && known->second.*each != held.*each &&
                 age(held.*each) == Age::old;
        });
    if (isOutdated) _earlier->outdated.insert(record.id);
  }
}

// Asks now, because the store is locked later.
void HubClient::askForPushes() {
  _journal = JournalFile(_store.path(), _client).read();
  if (!_journal) return;
  std::vector<String> pushIds{_journal->pushId, _journal->knownPushId};
  for (const DeniedDelivery& each : _journal->denied) pushIds.push_back(each.pushId);
  for (const String& pushId : pushIds) {
    if (pushId) _pushesAskedFor.emplace(pushId, _hub.hasPush(pushId));
  }
}

std::optional<bool> HubClient::tookChanges(const String& pushId) {
  const auto asked = _pushesAskedFor.find(pushId);
  return asked != _pushesAskedFor.end() && asked->second;
}

Dictionary HubClient::recordsForEntityName(const String& entityName, bool& moreComing, String&) {
  if (!_hasTree) readTree();
  const EntitySchema& schema = *_schema.named(entityName);
  std::size_t& next = _given[static_cast<std::size_t>(schema.entity)];
  Dictionary records;
  for (; next < _tree.size(); ++next) {
    if (entityOf(_tree[next]) != schema.entity) continue;
    if (records.size() == kRecordsAtOnce) {
      moreComing = true;
      break;
    }
    records.set(_tree[next].id, dictionaryOf(schema, _tree[next]));
  }
  return records;
}

// What the service holds: everything that it sent, or the base with what it sent on top.
void HubClient::readTree() {
  _hasTree = true;
  if (_offersAgain) BaseTable(_store).offerAgain(_client);
  takeMarksOff();
  if (_remote.whole) {
    const auto isLive = [](const HubRecord& record) { return !record.deleted; };
    const auto tombstones = std::stable_partition(_remote.records.begin(), _remote.records.end(), isLive);
    _tree.assign(std::move_iterator(_remote.records.begin()), std::move_iterator(tombstones));
    _remote.records.erase(_remote.records.begin(), tombstones);
    return;
  }
  std::unordered_map<String, const HubRecord*> newer;
  for (const HubRecord& record : _remote.records) newer.emplace(record.id, &record);
  _tree = recordsOfBase();
  std::erase_if(_tree, [&](const HubRecord& record) { return newer.contains(record.id); });
  for (const HubRecord& record : _remote.records) {
    if (!record.deleted) _tree.push_back(record);
  }
}

// Of what was lost, was deleted here, and others have given anew all the same: it lives again.
void HubClient::takeMarksOff() {
  BaseTable base(_store);
  const std::vector<HeldVersion> lost = base.lost(_client);
  if (lost.empty()) return;
  if (_knownPushes.empty()) readPushes();
  std::unordered_set<String> givenAnew;
  for (const HubRecord& record : _remote.records) {
    const bool isAnew = std::all_of(pelto::kHubOrigins.begin(), pelto::kHubOrigins.end(),
                                    [&](String HubOrigins::*each) { return isNews(record.origins.*each); });
    if (isAnew) givenAnew.insert(record.id);
  }
  for (const HeldVersion& each : lost) {
    if (givenAnew.contains(each.record.localId)) base.setLost(_client, each.record.record, false);
  }
}

std::vector<HubRecord> HubClient::recordsOfBase() {
  std::vector<HubRecord> records;
  for (const ClientRecord& record : clientTree(BaseTable(_store).read(_client).records, {})) {
    records.push_back(hubRecord(record));
  }
  return records;
}

Dictionary HubClient::changedRecordsForEntityName(const String&, bool&, String&) { return {}; }

int HubClient::applyChange(const LoomerChange& change, const String& entityName, String&,
                           const Dictionary* formattedRecord, String&) {
  if (change.type() == LoomerChangeTypeDelete) return erase(change.recordIdentifier());
  return put(*_schema.named(entityName), change.recordIdentifier(), *formattedRecord,
             change.type() == LoomerChangeTypeAdd);
}

bool HubClient::isPushFull() {
  if (_push.size() < _mostRecords) return false;
  ++_postponed;
  return true;
}

int HubClient::erase(const String& id) {
  if (isPushFull()) return LoomerChangeRefused;
  addTombstone(id);
  return LoomerChangeAccepted;
}

void HubClient::addTombstone(const String& id) {
  HubRecord& tombstone = _push.emplace_back();
  tombstone.id = id;
  tombstone.deleted = true;
  ++_remote.room;
}

int HubClient::put(const EntitySchema& schema, const String& id, const Dictionary& record, bool isNew) {
  if (isPushFull()) return LoomerChangeRefused;
  HubRecord given = hubRecord(clientRecord(schema, id, record));
  const std::size_t bytes = given.name.view().size() + given.url.view().size();
  if (bytes > pelto::kLongestHubRecord) {
    ++_tooLong;
    return LoomerChangeRefused;
  }
  // What a changed record held before is unknown here, so all its bytes count until the service answers.
  if ((isNew && _remote.room <= 0) || _remote.roomForBytes < static_cast<std::int64_t>(bytes)) {
    ++_leftOut;
    return LoomerChangeRefused;
  }
  if (isNew) --_remote.room;
  _remote.roomForBytes -= static_cast<std::int64_t>(bytes);
  _push.push_back(std::move(given));
  return LoomerChangeAccepted;
}

bool HubClient::deleteAllRecordsForEntityName(const String& entityName, String&) {
  if (!_hasTree) readTree();
  const EntitySchema& schema = *_schema.named(entityName);
  for (const HubRecord& record : _tree) {
    if (entityOf(record) == schema.entity) addTombstone(record.id);
  }
  return true;
}

// An earlier note stays unless everything was offered again.
void HubClient::noteWhatIsLeft(LoomerClient& client, const char* key, std::size_t count) const {
  if (count > 0) {
    client.setObject(Value(true), key);
  } else if (_offersAgain) {
    client.setObject(std::nullopt, key);
  }
}

bool HubClient::sessionDriverDidPull(LoomerSessionDriver&, String&) {
  forgetFormer();
  return true;
}

// What the service held before is needed after it is restored. It is kept as long as the log, and no more of
// it than the service holds now.
void HubClient::forgetFormer() {
  BaseTable base(_store);
  const Date now = Platform::current().clock.now();
  const std::int64_t session = _past.lastSessionBefore(Date{now.seconds - kKeptSeconds});
  base.forgetFormer(_client, session, std::max(base.heldCount(_client), kFewFormerRecords));
  OriginTable(_store, _client).forgetDeletions(session);
}

// What the service held before it was put back.
std::unordered_map<String, HubRecord> HubClient::lostRecords() {
  std::unordered_map<String, HubRecord> lost;
  if (_lostSession == 0) return lost;
  std::vector<BaseRecord> base;
  for (HeldVersion& each : BaseTable(_store).heldSince(_client, _lostSession)) {
    if (each.since <= _lostSession) base.push_back(std::move(each.record));
  }
  lost = hubRecords(base);
  for (auto& [id, record] : lost) {
    const auto known = _knownOrigins.find(id);
    if (known != _knownOrigins.end()) record.origins = known->second;
  }
  if (_journal && _journal->sessions == _lostSession) {
    // What a session knew of a service that was put back is no part of what that has lost.
    const bool hadGoneBack = _journal->knownPushId == _journal->pushId;
    if (hadGoneBack) base = withDifference(_journal->known, base);
    if (!hadGoneBack) takeOver(_journal->known, _journal->knownPushId, base, lost);
    takeOver(_journal->delivered, _journal->pushId, base, lost);
  }
  return lost;
}

HubOrigins HubClient::originsAt(const HubRecord& held) {
  if (held.revision > 0) return held.origins;
  if (_lostSession == 0) return OriginTable(_store, _client).find(held.id);
  const auto known = _knownOrigins.find(held.id);
  return known == _knownOrigins.end() ? HubOrigins() : known->second;
}

void HubClient::setOrigins(pelto::HubPush& push) {
  if (push.records.empty()) return;
  PushedOver over{
      .held = {}, .lost = lostRecords(), .isNews = [this](const String& each) { return isNews(each); }};
  std::unordered_set<String> given;
  for (const HubRecord& each : push.records) given.insert(each.id);
  for (HubRecord& each : _tree) {
    if (given.contains(each.id)) each.origins = originsAt(each);
    over.held.emplace(each.id, &each);
  }
  loomer::setOrigins(push.records, push.id, over);
  for (HubRecord& each : push.records) {
    if (each.deleted) {
      each.deletedBy = originOfDeletion(each.id, push.id);
    } else if (_knownDeletions.contains(each.id)) {
      each.origins = {push.id, push.id, push.id, push.id, push.id};
    }
  }
}

String HubClient::originOfDeletion(const String& id, const String& pushId) const {
  const auto known = _knownDeletions.find(id);
  if (known != _knownDeletions.end()) return known->second;
  // What was never here had been deleted before, by the time of the state that was lost at the latest.
  return _earlier && !_knownOrigins.contains(id) ? _past.newest().pushId : pushId;
}

// Of the service's record as it is once all that it lost is given again.
HubOrigins HubClient::settledOrigins(const HubRecord& held) const {
  HubOrigins origins = held.origins;
  const auto known = _knownOrigins.find(held.id);
  if (known == _knownOrigins.end()) return origins;
  for (String HubOrigins::*const each : pelto::kHubOrigins) {
    if (origins.*each && !isNews(origins.*each) && known->second.*each) origins.*each = known->second.*each;
  }
  return origins;
}

void HubClient::keepOrigins(const std::vector<HubRecord>& given) {
  OriginTable table(_store, _client);
  const auto keep = [&](const HubRecord& record, const HubOrigins& origins, bool isGiven) {
    if (record.deleted) return table.putDeletion(record.id, record.deletedBy, _session);
    table.put(record.id, origins);
    // That the service lost the deletion alone does not bring the record back.
    const bool isBack = isGiven || _lostSession == 0 || hasNews(origins);
    if (isBack) table.removeDeletion(record.id);
  };
  for (const std::vector<HubRecord>* const each : {&_remote.records, &_tree}) {
    for (const HubRecord& record : *each) {
      if (record.deleted || record.revision > 0) keep(record, settledOrigins(record), false);
    }
  }
  for (const HubRecord& record : given) keep(record, record.origins, true);
}

void HubClient::keepPushes(const String& pushId, const pelto::HubState& seen) {
  PushTable table(_store, _client);
  for (const auto* const states : {&_remote.pastGivenAgain, &_remote.past}) {
    for (const pelto::HubState& each : *states) table.add(each, _session);
  }
  table.add(_remote.now, _session);
  table.add({_remote.now.account, _remote.now.revision + 1, pushId}, _session);
  table.add(seen, _session);
}

// All that the service may have lost.
std::vector<pelto::HubState> HubClient::statesGivenAgain() {
  std::vector<pelto::HubState> states = _past.states();
  std::unordered_set<String> listed;
  for (const pelto::HubState& each : states) listed.insert(each.pushId);
  const auto learned =
      PushTable(_store, _client).learnedAfter(_partedSession, _remote.now.account, kMostGivenAgain);
  for (const pelto::HubState& each : learned) {
    if (listed.insert(each.pushId).second) states.push_back(each);
  }
  std::erase_if(states, [](const pelto::HubState& each) { return each.revision == 0; });
  return states;
}

bool HubClient::sessionDriverWillFinishSession(LoomerSessionDriver& driver, String& error) {
  LoomerClient& client = *driver.client();
  pelto::HubState seen = _remote.now;
  // What is left goes with later pushes; only then does the service hold all that it lost.
  const bool hasLost = _earlier || client.objectForKey(kGivesAgainKey);
  const bool isLast = _postponed == 0 && _leftOut == 0 && _mostRecords > 0;
  pelto::HubPush push{_remote.now, _pushId, std::move(_push)};
  if (hasLost && isLast) push.givesAgain = statesGivenAgain();
  if (!push.records.empty() || !push.givesAgain.empty()) {
    if (!push.id) push.id = newUuidString();
    setOrigins(push);
    _inPush = push.records.size();
    Clock& clock = Platform::current().clock;
    const double began = clock.now().seconds;
    const pelto::HubPushed pushed = _hub.push(push);
    _pushSeconds = clock.now().seconds - began;
    _overtaken = pushed.outcome == pelto::HubPushed::Outcome::overtaken;
    _foundNoRoom = pushed.outcome == pelto::HubPushed::Outcome::full;
    if (!pushed) {
      error =
          _overtaken ? "another computer gave changes in the meantime" : "there is no room at the service";
      return false;
    }
    seen = pushed.now;
  }
  if (_past.empty() || seen != _past.newest()) {
    _past.enter(_remote, seen, _session, Platform::current().clock.now());
    _past.store(client);
    keepPushes(push.id, seen);
  }
  keepOrigins(push.records);
  if (hasLost) noteWhatIsLost(client, isLast);
  noteWhatIsLeft(client, kLeftOutKey, _leftOut);
  noteWhatIsLeft(client, kPostponedKey, _postponed);
  return true;
}

void HubClient::noteWhatIsLost(LoomerClient& client, bool isGiven) const {
  const std::pair<const char*, std::int64_t> notes[] = {{kGivesAgainKey, _lostSession},
                                                        {kPartedKey, _partedSession}};
  for (const auto& [key, session] : notes)
    client.setObject(isGiven ? std::nullopt : std::optional(Value(session)), key);
}

void HubClient::sessionDriverWillCancelSession(LoomerSessionDriver&) {}

}  // namespace corvane::loomer
