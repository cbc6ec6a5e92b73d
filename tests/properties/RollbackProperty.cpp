#include "tests/properties/RollbackProperty.h"

#include <rapidcheck.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>

#include "CorvaneSyncClient/platform/loomer/edit/Undo.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "tests/kit/PropertyCheck.h"
#include "tests/kit/Steps.h"
#include "tests/properties/ComputerSimulation.h"
#include "tests/properties/EditHistory.h"

namespace corvane {

namespace {

using kit::require;
using kit::Step;
using kit::StepKind;

constexpr std::array kCallsCutOff = {"remote changes", "push", "pushed"};
constexpr std::size_t kMostComputers = 5;

enum Which : std::size_t { kName, kAddress, kTabs, kFolder };

/// Computers with one client each, whose users edit at random. An entry's title is what it is known by for
/// ever, and after a dot the number of its last renaming.
class EditingComputers {
 public:
  EditingComputers(std::size_t computers, MemoryHub::Kind service)
      : _simulation(std::vector<std::size_t>(computers, 1), service) {
    add(0, "", true);
    add(0, "", true);
    const std::string folder = _simulation.client(0).childrenOf("").front();
    for (const char* const in : {"", folder.c_str(), folder.c_str()}) add(0, in, false);
    const std::string ordered = _simulation.client(0).addFolder("", kOrdered);
    for (const char* const name : {"o1", "o2", "o3", "o4", "o5"}) {
      _simulation.client(0).addBookmark(ordered, name, std::string("http://") + name + "/");
    }
    _users.resize(computers);
    _lastOrder = orderIn(_simulation.client(0));
    for (int round = 0; round < 2; ++round) {
      for (std::size_t i = 0; i < computers; ++i) _simulation.sync(i);
    }
  }

  void carryOut(const Step& step) {
    for (std::size_t i = 0; i < _simulation.clientCount(); ++i) lookAt(i);
    const std::size_t client = step.client % _simulation.clientCount();
    const char* const call = kCallsCutOff[step.entry % kCallsCutOff.size()];
    const bool isReorder = step.kind == StepKind::reorder;
    const bool changesNobody = step.kind == StepKind::restoreService || step.kind == StepKind::join;
    if (step.kind == StepKind::leave) return leave(client);
    if (!changesNobody) _users[isReorder ? 0 : client].met.reset();
    switch (step.kind) {
      case StepKind::sync:
        return sync(client);
      case StepKind::syncCutOff:
        return _simulation.syncCutOff(client, call);
      case StepKind::syncKilled:
        return _simulation.syncKilled(client, call);
      case StepKind::reorder:
        return reorder(step);
      case StepKind::join:
        if (_simulation.clientCount() == kMostComputers) return;
        _simulation.join();
        _users.emplace_back();
        return;
      case StepKind::settle:
        settle();
        return requireEditsKept();
      case StepKind::restoreService:
        return putBack(step);
      case StepKind::losePushes:
        return losePushes(client, step);
      case StepKind::undo:
        return undo(client, step.entry % 3);
      default:
        return edit(client, step);
    }
  }

  /// Until all hold the same.
  void settle() {
    for (int round = 0; round < 2; ++round) {
      for (std::size_t i = 0; i < _simulation.clientCount(); ++i) sync(i);
    }
    _simulation.requireConverged();
  }

  /// Of what all hold, which counts from then on as seen by everybody.
  void requireEditsKept() {
    std::map<std::string, EntryValues> found;
    std::set<std::string> filled;
    ScriptedClient& client = _simulation.client(0);
    require(orderIn(client) == _lastOrder, "the order is not " + _lastOrder + ": " + client.text());
    for (const auto& [id, node] : client.nodes) {
      if (isOrdered(client, node)) continue;
      const EntryValues values = valuesOf(client, node);
      const std::string identity = identityOf(node);
      require(found.emplace(identity, values).second, identity + " is there twice: " + client.text());
      filled.insert(values[kFolder]);
    }
    for (const auto& [identity, history] : _entries) {
      const auto end = found.find(identity);
      if (end == found.end()) {
        require(!history.mustLive(), identity + " is gone though its deletion was undone: " + client.text());
        require(history.wasDeleted(), identity + " vanished though nobody deleted it: " + client.text());
        continue;
      }
      const bool mayStay =
          !history.mustBeGone() || filled.contains(identity) || cameBackWithItsFolder(found, identity);
      require(mayStay, identity + " was deleted and came back: " + client.text());
      const std::string complaint = history.complaint(end->second);
      require(complaint.empty(), identity + " has " + complaint + ": " + client.text());
    }
    for (auto& [identity, history] : _entries) {
      const auto end = found.find(identity);
      history.settle(end == found.end() ? nullptr : &end->second);
    }
  }

 private:
  using Node = ScriptedClient::Node;

  /// The service's state with which a computer last exchanged everything.
  struct Met {
    int rollbacks = 0;  ///< so many before
    std::int64_t revision = 0;
  };
  struct User {
    std::map<std::string, std::set<std::string>> seen;  ///< by folder
    std::optional<Met> met;                             ///< nothing when he has changed something since
  };

  static constexpr const char* kAnchor = "n1";  // never deleted: keeps the guard out of these histories
  static constexpr const char* kOrdered = "o";  // its children are reordered by one user, and nothing else

  static EntryValues valuesOf(ScriptedClient& client, const Node& node) {
    const std::string folder = node.parent.empty() ? "" : identityOf(client.nodes.at(node.parent));
    return {node.name.toString(), node.url ? node.url.toString() : "", node.tabGroup ? "1" : "0", folder};
  }

  void sync(std::size_t user) {
    _simulation.sync(user);
    _users[user].met = {_rollbacks, _simulation.hub.state.now.revision};
  }

  /// One user gives an edit, and then another one of the same value, or undoes a deletion. Of the others some
  /// see the first one alone, some only what came of both, and some each. Then the service loses it all;
  /// those that know a part of it may come first.
  void losePushes(std::size_t author, const Step& step) {
    constexpr std::array kKinds = {StepKind::rename, StepKind::readdress, StepKind::move, StepKind::erase};
    const auto part = [&](std::size_t user) -> std::size_t {
      const std::size_t after = (user + _users.size() - author) % _users.size();
      return (after == 1 ? step.index : after == 2 ? step.value : step.index + step.value) % 3;
    };
    const auto syncThose = [&](const auto& who) {
      for (std::size_t user = 0; user < _users.size(); ++user) {
        if (user != author && who(user)) sync(user);
      }
    };
    sync(author);
    const MemoryHub::State before = _simulation.hub.state;
    for (unsigned i = 0; i < 2; ++i) {
      Step one = step;
      one.kind = kKinds[step.folder % kKinds.size()];
      one.folder += i;
      if (i > 0 && one.kind == StepKind::erase) {
        undo(author, 0);
      } else {
        edit(author, one);
      }
      sync(author);
      syncThose([&](std::size_t user) { return part(user) == i || part(user) == 2; });
    }
    ++_rollbacks;
    _simulation.restore(before);
    if (step.entry % 2 == 1) return;
    for (std::size_t i = 0; i < 2; ++i) syncThose([&](std::size_t user) { return part(user) == i; });
  }

  /// To a state in the last part of the past, or to any.
  void putBack(const Step& step) {
    const std::size_t count = _simulation.backups.size();
    const std::size_t back =
        step.folder % 3 == 0 ? step.entry * 31U % count : step.entry % std::min<std::size_t>(count, 4);
    ++_rollbacks;
    const MemoryHub::State state = _simulation.backups[count - 1 - back];
    _simulation.restore(state);
  }

  static bool isOrdered(ScriptedClient& client, const Node& node) {
    return node.name == kOrdered || (!node.parent.empty() && client.nodes.at(node.parent).name == kOrdered);
  }

  /// A folder that lives because somebody changed it, though somebody else deleted it, comes back with what
  /// it held.
  bool cameBackWithItsFolder(const std::map<std::string, EntryValues>& found, std::string entry) const {
    while (!(entry = found.at(entry)[kFolder]).empty()) {
      if (_entries.at(entry).wasDeleted()) return true;
    }
    return false;
  }

  static std::string orderIn(ScriptedClient& client) {
    std::string order;
    for (const std::string& id : client.childrenOf(client.find(kOrdered))) {
      order += client.nodes.at(id).name.toString() + " ";
    }
    return order;
  }

  /// What this computer has seen another one has seen too, though perhaps not step by step.
  void leave(std::size_t at) {
    const std::optional<Met> met = _users[at].met;
    const auto knowsAll = [&](const User& other) {
      return &other != &_users[at] && met && other.met && other.met->rollbacks == met->rollbacks &&
             other.met->revision >= met->revision;
    };
    if (std::none_of(_users.begin(), _users.end(), knowsAll)) return;
    _simulation.leave(at);
    _users.erase(_users.begin() + static_cast<std::ptrdiff_t>(at));
    if (at == 0) _isOrderFinal = true;
  }

  void reorder(const Step& step) {
    if (_isOrderFinal) return;
    ScriptedClient& client = _simulation.client(0);
    const std::string folder = client.find(kOrdered);
    const std::vector<std::string> before = client.childrenOf(folder);
    const std::string moved = before[step.entry % before.size()];
    client.move(moved, folder, static_cast<int>(step.folder % before.size()));
    _lastOrder = orderIn(client);
  }

  void add(std::size_t at, const std::string& folder, bool isFolder) {
    ScriptedClient& client = _simulation.client(at);
    const std::string name = "n" + std::to_string(++_serial);
    const std::string id =
        isFolder ? client.addFolder(folder, name) : client.addBookmark(folder, name, "http://" + name + "/");
    _entries.emplace(name, EntryHistory(valuesOf(client, client.nodes.at(id))));
    fill(client, id);
  }

  void fill(ScriptedClient& client, const std::string& id) {
    const Node& node = client.nodes.at(id);
    if (node.parent.empty()) return;
    _entries.at(identityOf(client.nodes.at(node.parent))).fill(identityOf(node));
  }

  /// What a user has seen in which folder.
  void lookAt(std::size_t at) {
    ScriptedClient& client = _simulation.client(at);
    for (const auto& [id, node] : client.nodes) {
      if (!node.parent.empty())
        _users[at].seen[identityOf(client.nodes.at(node.parent))].insert(identityOf(node));
    }
  }

  void edit(std::size_t at, const Step& step) {
    ScriptedClient& client = _simulation.client(at);
    const auto isLeftAlone = [&](const std::string& id) {
      return !id.empty() && isOrdered(client, client.nodes.at(id));
    };
    std::vector<std::string> folders = client.visibleFolders();
    std::vector<std::string> all = client.visibleNodes();
    std::erase_if(folders, isLeftAlone);
    std::erase_if(all, isLeftAlone);
    const std::string folder = kit::chosen(folders, step.folder);
    if (step.kind <= StepKind::addFolder) return add(at, folder, step.kind == StepKind::addFolder);
    if (all.empty()) return;
    const std::string id = kit::chosen(all, step.entry);
    if (step.kind == StepKind::erase) return erase(at, id);
    const Node before = client.nodes.at(id);
    const std::string version = std::to_string(++_versions);
    if (step.kind == StepKind::rename) client.rename(id, identityOf(before) + "." + version);
    if (step.kind == StepKind::readdress && !before.folder) client.readdress(id, "http://v" + version + "/");
    if (step.kind == StepKind::toggle && before.folder && !before.tabGroup) client.toggle(id);
    if (step.kind == StepKind::move) move(client, id, folder);
    note(client, id, valuesOf(client, before));
  }

  /// Takes back what one of the computer's last sessions did, in the computer's store; the client hears of it
  /// when it syncs. `back`: how many sessions with changes came after that one.
  void undo(std::size_t at, unsigned back) {
    loomer::TruthStore& store = _simulation.store(at);
    std::int64_t session = 0;
    loomer::SessionLog(store).newestFirst([&](const loomer::SessionEntry& entry) {
      if (entry.changed > 0 && back-- == 0) session = entry.id;
      return session == 0;
    });
    const std::vector<loomer::TruthRecord> truth = loomer::RecordTable(store).readAll().records;
    const std::vector<loomer::TruthChange> changes =
        loomer::planUndo(truth, loomer::SessionLog(store).changes(session), 0, false).changes;
    std::map<loomer::RecordId, loomer::TruthRecord> records;
    for (const loomer::TruthRecord& each : truth) records[each.id] = each;
    for (const loomer::TruthChange& each : changes) records[each.after.id] = each.after;
    const auto isLeftAlone = [&](const loomer::TruthChange& each) { return mustStay(records, each); };
    if (std::any_of(changes.begin(), changes.end(), isLeftAlone)) return;
    loomer::undoSession(store, "somebody", session, false);
    for (const loomer::TruthChange& each : changes) noteUndone(at, records, each);
  }

  using Records = std::map<loomer::RecordId, loomer::TruthRecord>;

  static std::string identityIn(const Records& records, loomer::RecordId id) {
    if (id == loomer::kRoot) return "";
    const std::string name = records.at(id).content.name.toString();
    return name.substr(0, name.find('.'));
  }

  static EntryValues valuesIn(const Records& records, const loomer::TruthRecord& record) {
    const loomer::Content& content = record.content;
    return {content.name.toString(), content.url ? content.url.toString() : "", content.tabGroup ? "1" : "0",
            identityIn(records, record.parent)};
  }

  static bool mustStay(const Records& records, const loomer::TruthChange& change) {
    const std::string identity = identityIn(records, change.after.id);
    return identityIn(records, change.after.parent) == kOrdered ||
           (change.after.deleted && (identity == kOrdered || identity == kAnchor));
  }

  void noteUndone(std::size_t at, const Records& records, const loomer::TruthChange& change) {
    const std::string identity = identityIn(records, change.after.id);
    EntryHistory& history = _entries.at(identity);
    const EntryValues after = valuesIn(records, change.after);
    const bool wasThere = change.before && !change.before->deleted;
    if (change.after.deleted)
      return history.erase(valuesIn(records, *change.before), _users[at].seen[identity]);
    if (!after[kFolder].empty()) _entries.at(after[kFolder]).fill(identity);
    if (!wasThere) return history.revive(after);
    const EntryValues before = valuesIn(records, *change.before);
    for (std::size_t i = 0; i < before.size(); ++i) {
      if (before[i] != after[i]) history.edit(i, before[i], after[i]);
    }
  }

  void note(ScriptedClient& client, const std::string& id, const EntryValues& before) {
    const EntryValues after = valuesOf(client, client.nodes.at(id));
    EntryHistory& history = _entries.at(identityOf(client.nodes.at(id)));
    for (std::size_t i = 0; i < before.size(); ++i) {
      if (before[i] != after[i]) history.edit(i, before[i], after[i]);
    }
  }

  /// A bookmark, into a folder in which it never was: that it came back there would tell nothing.
  void move(ScriptedClient& client, const std::string& id, const std::string& folder) {
    if (client.nodes.at(id).folder || identityOf(client.nodes.at(id)) == kAnchor) return;
    const std::string target = folder.empty() ? "" : identityOf(client.nodes.at(folder));
    if (_entries.at(identityOf(client.nodes.at(id))).knows(kFolder, target)) return;
    client.move(id, folder);
    fill(client, id);
  }

  void erase(std::size_t at, const std::string& id) {
    ScriptedClient& client = _simulation.client(at);
    const std::vector<std::string> below = client.subtree(id);
    for (const std::string& each : below) {
      if (identityOf(client.nodes.at(each)) == kAnchor) return;
    }
    for (const std::string& each : below) {
      const Node& node = client.nodes.at(each);
      _entries.at(identityOf(node)).erase(valuesOf(client, node), _users[at].seen[identityOf(node)]);
    }
    client.remove(id);
  }

  ComputerSimulation _simulation;
  int _serial = 0;
  int _versions = 0;
  std::map<std::string, EntryHistory> _entries;
  std::vector<User> _users;  ///< by client
  int _rollbacks = 0;
  std::string _lastOrder;
  bool _isOrderFinal = false;  ///< whose user is gone
};

using enum StepKind;
const kit::Weights kRollbackSteps = {
    {3, addBookmark}, {1, addFolder},       {4, rename}, {3, readdress},      {1, toggle},
    {4, move},        {3, reorder},         {3, erase},  {2, StepKind::undo}, {12, sync},
    {1, syncCutOff},  {1, syncKilled},      {1, join},   {2, leave},          {3, restoreService},
    {8, losePushes},  {1, StepKind::settle}};

}  // namespace

void editsSurviveRollbacks(MemoryHub::Kind service) {
  EditingComputers random(*rc::gen::element<std::size_t>(2, 3, 3, 4), service);
  for (const Step& step : *kit::stepsOf(kRollbackSteps, 24)) random.carryOut(step);
  random.settle();
  random.requireEditsKept();
}

}  // namespace corvane
