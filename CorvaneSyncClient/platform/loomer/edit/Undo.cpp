#include "CorvaneSyncClient/platform/loomer/edit/Undo.h"

#include <algorithm>
#include <limits>
#include <tuple>
#include <unordered_map>
#include <unordered_set>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/loomer/edit/TruthEdit.h"
#include "CorvaneSyncClient/platform/loomer/merge/Forest.h"
#include "CorvaneSyncClient/platform/loomer/merge/Places.h"

namespace corvane::loomer {

namespace {

// Behind every place that a sibling has; the folder is numbered afresh.
constexpr std::int64_t kLastPlace = std::numeric_limits<std::int64_t>::max();

class Undo {
 public:
  Undo(const std::vector<TruthRecord>& truth, bool force) : _truth(truth), _after(truth), _force(force) {
    _index.reserve(truth.size());
    for (std::size_t i = 0; i < truth.size(); ++i) _index.emplace(truth[i].id, static_cast<Index>(i));
  }

  UndoPlan run(const std::vector<LoggedChange>& changes, std::int64_t revision) {
    for (const LoggedChange& change : changes) restore(change);
    attachToLivingFolders();
    breakCycles();
    settleAdditions();
    settlePlaces();
    settleSpecialFolders();
    return {differences(revision), std::move(_notes)};
  }

 private:
  // --- 1. Each record that the session changed ---

  void restore(const LoggedChange& change) {
    if (!change.before && !change.after) return;
    const Index at = indexOf(change.record);
    const bool lives = at != kNoNode && !_after[at].deleted;
    if (!change.before) {
      if (lives) takeBackAddition(at, *change.after);
    } else if (!lives) {
      if (change.after && !_force)
        return note(change, MessageText<1>("%1 was deleted since and stays deleted"));
      revive(change);
    } else if (!change.after) {
      restoreRevived(at, *change.before);
    } else {
      restoreContent(at, change.before->content, change.after->content);
      restorePlace(at, *change.before, *change.after);
    }
  }

  void takeBackAddition(Index at, const LoggedState& added) {
    const TruthRecord& now = _after[at];
    if (!_force && (now.content != added.content || now.parent != added.parent)) {
      return note(now, MessageText<1>("%1 was added by the session and changed since; it stays"));
    }
    _going.insert(at);
  }

  void revive(const LoggedChange& change) {
    const auto [found, isNew] = _index.emplace(change.record, static_cast<Index>(_after.size()));
    if (isNew) _after.emplace_back();
    TruthRecord& record = _after[found->second];
    record.id = change.record;
    record.entity = change.entity;
    record.deleted = false;
    record.content = change.before->content;
    reparent(found->second, change.before->parent, change.before->place);
  }

  // The session deleted it and a later one brought it back.
  void restoreRevived(Index at, const LoggedState& before) {
    TruthRecord& now = _after[at];
    const bool same =
        now.content == before.content && now.parent == before.parent && now.place == before.place;
    if (same) return;
    if (!_force) return note(now, MessageText<1>("%1 was brought back since and stays as it is"));
    now.content = before.content;
    reparent(at, before.parent, before.place);
  }

  void restoreContent(Index at, const Content& before, const Content& after) {
    restoreAttribute(at, &Content::name, MessageText<1>("%1 had its title changed again since, which stays"),
                     before, after);
    restoreAttribute(at, &Content::url, MessageText<1>("%1 had its address changed again since, which stays"),
                     before, after);
    restoreAttribute(at, &Content::tabGroup,
                     MessageText<1>("%1 had its being a group of tabs changed again since, which stays"),
                     before, after);
    restoreAttribute(at, &Content::special,
                     MessageText<1>("%1 had its being a special folder changed again since, which stays"),
                     before, after);
  }

  template <typename T>
  void restoreAttribute(Index at, T Content::*field, MessageText<1> changedAgain, const Content& before,
                        const Content& after) {
    T& now = _after[at].content.*field;
    if (before.*field == after.*field || now == before.*field) return;
    if (now == after.*field || _force) {
      now = before.*field;
    } else {
      note(_after[at], changedAgain);
    }
  }

  void restorePlace(Index at, const LoggedState& before, const LoggedState& after) {
    const TruthRecord& now = _after[at];
    const bool moved = before.parent != after.parent;
    if (!moved && before.place == after.place) return;
    if (now.parent == before.parent && (moved || now.place == before.place)) return;  // it is back already
    const bool untouched = now.parent == after.parent && (moved || now.place == after.place);
    if (untouched || _force) return reparent(at, before.parent, before.place);
    note(now, now.parent == after.parent
                  ? MessageText<1>("%1 was put elsewhere among its siblings since and stays there")
                  : MessageText<1>("%1 was moved to another folder since and stays there"));
  }

  void reparent(Index at, RecordId parent, std::int64_t place) {
    _after[at].parent = parent;
    _after[at].place = place;
    _reparented.push_back(at);
  }

  // --- 2. Every parent lives ---

  // kNoNode for the root and for what nobody remembers.
  Index indexOf(RecordId id) const {
    const auto found = _index.find(id);
    return found == _index.end() ? kNoNode : found->second;
  }

  bool isLiveFolder(RecordId id) const {
    if (id == kRoot) return true;
    const Index at = indexOf(id);
    return at != kNoNode && !_after[at].deleted && _after[at].entity == Entity::folder;
  }

  // The nearest living folder above a dead one; the root where nobody remembers, or where tombstones of
  // different sessions point at one another.
  RecordId livingAbove(RecordId dead) {
    std::vector<RecordId> way;
    RecordId above = dead;
    while (!isLiveFolder(above)) {
      const auto [known, isNew] = _livingAbove.emplace(above, kRoot);
      if (!isNew) {
        above = known->second;
        break;
      }
      way.push_back(above);
      const Index at = indexOf(above);
      above = at == kNoNode ? kRoot : _after[at].parent;
    }
    for (const RecordId passed : way) _livingAbove[passed] = above;
    return above;
  }

  void attachToLivingFolders() {
    for (const Index at : _reparented) {
      TruthRecord& record = _after[at];
      if (isLiveFolder(record.parent)) continue;
      record.parent = livingAbove(record.parent);
      record.place = kLastPlace;
      note(record,
           MessageText<1>(
               "%1 comes back at the end of the nearest folder above, since its own was deleted since"));
    }
  }

  // --- 3. No cycles ---

  std::vector<Index> cycles() const {
    Parents parents(_after.size(), kNoNode);
    for (std::size_t i = 0; i < _after.size(); ++i) {
      if (!_after[i].deleted) parents[i] = indexOf(_after[i].parent);
    }
    return nodesOnCycles(parents);
  }

  // Takes back the moves that close cycles with later moves; if others close then, all moves. Records that
  // come back close none on their own: before the session they stood in one tree.
  void breakCycles() {
    if (_reparented.empty()) return;
    const std::vector<Index> first = cycles();
    if (first.empty()) return;
    for (const Index at : first) stayWhereItIs(at);
    if (cycles().empty()) return;
    for (const Index at : _reparented) stayWhereItIs(at);
  }

  void stayWhereItIs(Index at) {
    if (at >= _truth.size() || _truth[at].deleted) return;
    TruthRecord& record = _after[at];
    if (record.parent == _truth[at].parent && record.place == _truth[at].place) return;
    record.parent = _truth[at].parent;
    record.place = _truth[at].place;
    note(record, MessageText<1>("%1 stays in its folder, since its old folder lies inside it by now"));
  }

  // --- 4. What the session added goes, unless it is the parent of something else ---

  void settleAdditions() {
    if (_going.empty()) return;
    for (std::size_t i = 0; i < _after.size(); ++i) {
      if (_after[i].deleted || _going.contains(static_cast<Index>(i))) continue;
      // Up to a folder that lives anyway, as then does everything above it.
      for (Index folder = indexOf(_after[i].parent); _going.erase(folder) > 0;
           folder = indexOf(_after[folder].parent)) {
        note(_after[folder],
             MessageText<1>("%1 was added by the session and holds something else by now; it stays"));
      }
    }
    for (const Index at : _going) _after[at].deleted = true;
  }

  // --- 5. No two siblings on one place ---

  void settlePlaces() {
    std::unordered_map<RecordId, std::vector<Index>> folders;
    for (const Index at : _reparented) folders.try_emplace(_after[at].parent);
    for (std::size_t i = 0; i < _after.size() && !folders.empty(); ++i) {
      if (_after[i].deleted) continue;
      const auto folder = folders.find(_after[i].parent);
      if (folder != folders.end()) folder->second.push_back(static_cast<Index>(i));
    }
    const std::unordered_set<Index> reparented(_reparented.begin(), _reparented.end());
    for (auto& [parent, children] : folders) numberWhereNeeded(children, reparented);
  }

  void numberWhereNeeded(std::vector<Index>& children, const std::unordered_set<Index>& reparented) {
    // What comes back goes before what took its place since.
    std::sort(children.begin(), children.end(), [&](Index a, Index b) {
      const auto key = [&](Index at) {
        return std::tuple(_after[at].place, !reparented.contains(at), _after[at].id);
      };
      return key(a) < key(b);
    });
    bool needed = !children.empty() && _after[children.back()].place == kLastPlace;
    for (std::size_t i = 1; i < children.size(); ++i) {
      needed = needed || _after[children[i - 1]].place == _after[children[i]].place;
    }
    if (!needed) return;
    std::int64_t place = 0;
    for (const Index child : children) _after[child].place = place += kPlaceSpread;
  }

  // --- 6. One special folder of each title, directly in the root ---

  void settleSpecialFolders() {
    std::unordered_map<String, Index> chosen;
    for (std::size_t i = 0; i < _after.size(); ++i) {
      TruthRecord& record = _after[i];
      if (record.deleted || !record.content.special) continue;
      const auto at = static_cast<Index>(i);
      if (record.parent != kRoot) {
        record.content.special = false;
        continue;
      }
      const auto [other, first] = chosen.emplace(record.content.name, at);
      if (first) continue;
      // The one that is special now stays so.
      const bool isSpecialNow = at < _truth.size() && !_truth[at].deleted && _truth[at].content.special;
      const Index loser = isSpecialNow ? other->second : at;
      if (isSpecialNow) other->second = at;
      _after[loser].content.special = false;
      note(_after[loser],
           MessageText<1>(
               "%1 comes back as an ordinary folder, since there is another special one of its title"));
    }
  }

  // --- 7. The outcome ---

  std::vector<TruthChange> differences(std::int64_t revision) {
    std::vector<TruthChange> changes;
    for (std::size_t i = 0; i < _after.size(); ++i) {
      const bool isKnown = i < _truth.size();
      if (isKnown && isSame(_truth[i], _after[i])) continue;
      _after[i].revision = revision;
      changes.push_back({isKnown ? std::optional(_truth[i]) : std::nullopt, _after[i]});
    }
    return changes;
  }

  static bool isSame(const TruthRecord& a, const TruthRecord& b) {
    return a.deleted == b.deleted && a.parent == b.parent && a.place == b.place && a.content == b.content;
  }

  void note(const TruthRecord& record, MessageText<1> what) {
    _notes.push_back({record.id, record.content.name, what});
  }
  void note(const LoggedChange& change, MessageText<1> what) {
    _notes.push_back({change.record, change.before->content.name, what});
  }

  const std::vector<TruthRecord>& _truth;
  std::vector<TruthRecord> _after;  // `_truth`, then records that even the tombstones have forgotten
  bool _force;
  std::unordered_map<RecordId, Index> _index;           // in `_after`
  std::unordered_set<Index> _going;                     // the session's additions
  std::vector<Index> _reparented;                       // what gets its old folder or place back
  std::unordered_map<RecordId, RecordId> _livingAbove;  // of the dead folders that were asked for
  std::vector<UndoNote> _notes;
};

}  // namespace

UndoPlan planUndo(const std::vector<TruthRecord>& truth, const std::vector<LoggedChange>& changes,
                  std::int64_t revision, bool force) {
  return Undo(truth, force).run(changes, revision);
}

UndoResult undoSession(TruthStore& store, const String& author, std::int64_t session, bool force) {
  if (SessionLog(store).isPruned(session)) {
    throw LoomerStoreException(
        store.path(),
        Message(
            "session %1 is too old to be undone: the log keeps the last 90 days or %2 sessions, whichever is "
            "more",
            std::to_string(session), std::size_t{1'000}),
        Message("Nothing was changed. Put right by hand what that session changed."));
  }
  UndoResult result;
  result.session = editTruth(
      store, author, SessionKind::undo, [&](const std::vector<TruthRecord>& truth, const TruthState& state) {
        UndoPlan plan = planUndo(truth, SessionLog(store).changes(session), state.revision + 1, force);
        result.changed = plan.changes.size();
        result.notes = std::move(plan.notes);
        return std::move(plan.changes);
      });
  return result;
}

}  // namespace corvane::loomer
