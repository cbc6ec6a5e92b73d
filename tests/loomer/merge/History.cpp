#include "tests/loomer/merge/History.h"

#include <algorithm>
#include <map>
#include <set>

#include "tests/kit/PropertyCheck.h"
#include "tests/loomer/merge/RecordTrees.h"

namespace corvane::loomer::test {
namespace {

using kit::require;

std::string named(RecordId record) { return "record " + std::to_string(record); }

using Records = std::map<RecordId, TruthRecord>;

Records byId(const std::vector<TruthRecord>& truth) {
  Records records;
  for (const TruthRecord& record : truth) records[record.id] = record;
  return records;
}

void requireForest(const Records& records) {
  std::set<std::pair<RecordId, std::int64_t>> places;
  std::set<std::string> specialTitles;
  for (const auto& [id, record] : records) {
    if (record.deleted) continue;
    require(places.insert({record.parent, record.place}).second, named(id) + " shares a place");
    if (record.content.special) {
      require(record.parent == kRoot, named(id) + " is special outside the root");
      require(specialTitles.insert(record.content.name.toString()).second, named(id) + " is special twice");
    }
    std::size_t steps = 0;
    for (RecordId at = record.parent; at != kRoot; at = records.at(at).parent) {
      const auto parent = records.find(at);
      require(parent != records.end() && !parent->second.deleted, named(id) + " is a child of a dead record");
      require(parent->second.entity == Entity::folder, named(id) + " is a child of a bookmark");
      require(++steps <= records.size(), named(id) + " is in a cycle");
    }
  }
}

void requireTruthChanges(const MergeInput& input, const MergeResult& result) {
  const Records before = byId(input.truth);
  std::set<RecordId> seen;
  for (const TruthChange& change : result.truthChanges) {
    const TruthRecord& after = change.after;
    require(seen.insert(after.id).second, named(after.id) + " changes twice");
    const auto old = before.find(after.id);
    require(change.before.has_value() == (old != before.end()),
            named(after.id) + " has no or a wrong before");
    require(after.revision == input.revision, named(after.id) + " has another revision");
    if (!change.before) {
      require(after.id >= input.nextRecord, named(after.id) + " uses an id again");
      continue;
    }
    require(old->second.parent != after.parent || old->second.place != after.place ||
                old->second.deleted != after.deleted || old->second.content != after.content,
            named(after.id) + " changes nothing");
  }
}

// What the client holds while the changes are delivered to it one by one.
class ReceivingClient {
 public:
  explicit ReceivingClient(const MergeInput& input, const MergeResult& result) {
    std::map<std::string, RecordId> records;
    for (const BaseRecord& base : result.base) {
      if (base.localId) records[base.localId.toString()] = base.record;
    }
    for (const ClientChange& change : result.clientChanges) {
      if (change.localId) records[change.localId.toString()] = change.record;
    }
    if (result.deleteAllFirst || !input.client) return;
    for (const ClientRecord& record : *input.client) {
      const RecordId parent = record.parentLocalId ? records.at(record.parentLocalId.toString()) : kRoot;
      _held[records.at(record.localId.toString())] = {parent, record};
    }
  }

  void receive(const ClientChange& change) {
    const std::string name = named(change.record);
    require(_received.insert(change.record).second, name + " is delivered twice");
    require(change.record != kRoot, "the root is delivered");
    if (change.entity == Entity::bookmark) _bookmarksCame = true;
    require(change.entity == Entity::bookmark || !_bookmarksCame, name + " is a folder after a bookmark");
    const auto held = _held.find(change.record);
    require((held == _held.end()) == (change.type == LoomerChangeTypeAdd),
            name + " is added or held wrongly");
    if (change.type == LoomerChangeTypeDelete) {
      _held.erase(held);
      return;
    }
    require(change.entity == Entity::bookmark || change.content.name, name + " is a folder without a name");
    require(change.parent == kRoot || _held.contains(change.parent), name + " has a parent not held");
    if (held != _held.end()) {
      const auto& [parent, record] = held->second;
      // Only a special folder may be given its number again, which moves it to the front of the client's
      // list.
      require(change.content.special || parent != change.parent || record.position != change.position ||
                  record.content != change.content,
              name + " is delivered unchanged");
    }
    _held[change.record] = {change.parent,
                            {change.localId, String(), change.entity, change.position, change.content}};
    std::size_t steps = 0;
    for (RecordId at = change.record; at != kRoot && _held.contains(at); at = _held.at(at).first) {
      require(++steps <= _held.size(), name + " closes a cycle at the client");
    }
  }

 private:
  std::map<RecordId, std::pair<RecordId, ClientRecord>> _held;
  std::set<RecordId> _received;
  bool _bookmarksCame = false;
};

void requireBase(const MergeResult& result, const Records& after) {
  std::set<RecordId> seen;
  for (const BaseRecord& base : result.base) {
    require(seen.insert(base.record).second, named(base.record) + " is twice in the base");
    require(base.refusedRevision != 0 || !after.at(base.record).deleted,
            named(base.record) + " is dead in the base");
  }
}

}  // namespace

std::vector<TruthRecord> changedTruth(const std::vector<TruthRecord>& truth,
                                      const std::vector<TruthChange>& changes) {
  Records records = byId(truth);
  for (const TruthChange& change : changes) records[change.after.id] = change.after;
  std::vector<TruthRecord> result;
  for (const auto& [id, record] : records) result.push_back(record);
  return result;
}

void requireSound(const MergeInput& input, const MergeResult& result) {
  requireTruthChanges(input, result);
  const Records after = byId(changedTruth(input.truth, result.truthChanges));
  requireForest(after);
  requireBase(result, after);
  ReceivingClient client(input, result);
  for (const ClientChange& change : result.clientChanges) client.receive(change);
}

History::History(std::size_t clients) {
  for (std::size_t i = 0; i < clients; ++i) {
    _clients.push_back({ClientSimulation(std::string(1, static_cast<char>('A' + i))), {}});
  }
}

MergeInput History::inputFor(Client& client, Mode mode) const {
  MergeInput input;
  input.truth = _truth;
  input.base = client.base;
  input.client = client.simulation.read();
  input.refresh = mode == Mode::refresh || client.base.empty();
  input.replace = mode == Mode::replace;
  input.nextRecord = _nextRecord;
  input.revision = _revision + 1;
  return input;
}

MergeResult History::mergeChecked(const MergeInput& input) const {
  MergeResult result = merge(input);
  requireSound(input, result);
  if (_truth.empty() && !input.replace) {
    require(result.clientChanges.empty(), "a first session into an empty truth delivers something");
  }
  if (input.refresh || input.replace) require(result.deletedByAbsence == 0, "a refresh deletes");
  require(!result.deleteAllFirst || input.replace, "a client is emptied for no reason");
  return result;
}

void History::commit(const MergeResult& result) {
  _truth = changedTruth(_truth, result.truthChanges);
  for (const TruthRecord& record : _truth) _nextRecord = std::max(_nextRecord, record.id + 1);
  ++_revision;
  ++_sessions;
}

MergeResult History::sync(std::size_t at, Mode mode) {
  Client& client = _clients.at(at);
  const MergeInput input = inputFor(client, mode);
  const MergeResult result = mergeChecked(input);
  commit(result);
  client.base = result.base;
  client.simulation.apply(result, client.base);
  requireQuiet(client);
  return result;
}

void History::syncKilled(std::size_t at) {
  Client& client = _clients.at(at);
  const MergeResult result = mergeChecked(inputFor(client, Mode::slow));
  std::vector<BaseRecord> uncommitted = result.base;
  client.simulation.apply(result, uncommitted);
}

// Right after its session a client holds the truth, and another session has nothing to do on either side.
void History::requireQuiet(Client& client) {
  const MergeInput input = inputFor(client, Mode::slow);
  const std::string held = client.simulation.print();
  require(held == printTruth(), "the client holds\n" + held + "\nand the truth\n" + printTruth());
  const MergeResult again = merge(input);
  require(again.truthChanges.empty(), "a session with nothing new changes the truth");
  require(again.clientChanges.empty(), "a session with nothing new delivers something");
  require(again.losses.empty(), "a session with nothing new loses a value");
  MergeInput fast = input;
  fast.client.reset();
  const MergeResult nothing = merge(fast);
  require(nothing.truthChanges.empty() && nothing.clientChanges.empty() && nothing.base == fast.base,
          "a session without records does something");
}

void History::round() {
  for (std::size_t i = 0; i < _clients.size(); ++i) sync(i);
}

void History::requireConverged() {
  const std::vector<TruthRecord> before = _truth;
  for (Client& client : _clients) requireQuiet(client);
  round();
  require(before.size() == _truth.size() &&
              std::equal(before.begin(), before.end(), _truth.begin(),
                         [](const auto& a, const auto& b) { return a.revision == b.revision; }),
          "the truth changes after the clients have converged");
}

std::string History::printTruth() const { return test::printTruth(_truth); }

}  // namespace corvane::loomer::test
