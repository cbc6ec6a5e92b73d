#include "browsers/host/Intake.h"

#include <algorithm>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "browsers/host/Likeness.h"

namespace corvane::browsers {

namespace {

// What a nameless folder of a browser is called elsewhere: other clients cannot hold one without a title.
constexpr const char* kUntitledFolder = "Untitled Folder";

constexpr std::size_t kMostRemovedNodes = 5000;

String titleFor(const BrowserNode& node) {
  const bool isNameless = node.title.empty() && node.kind == NodeKind::folder;
  return isNameless ? String(kUntitledFolder) : String(node.title);
}

std::string joined(std::string_view folder, NodeKind kind, std::string_view title, std::string_view address) {
  std::string key(nameOf(kind));
  for (const std::string_view part : {folder, title, address}) {
    key += '\0';
    key += part;
  }
  return key;
}

// Local ids by what they look like, each to be taken once, in their order.
class Candidates {
 public:
  void add(const std::string& key, const std::string& localId) { _queues[key].push_back(localId); }

  // The first one that nobody has taken; empty for none.
  std::string take(const std::string& key, std::unordered_set<std::string>& taken) {
    const auto found = _queues.find(key);
    if (found == _queues.end()) return {};
    while (!found->second.empty()) {
      std::string localId = std::move(found->second.front());
      found->second.pop_front();
      if (taken.insert(localId).second) return localId;
    }
    return {};
  }

 private:
  std::unordered_map<std::string, std::deque<std::string>> _queues;
};

class TakingIn {
 public:
  TakingIn(HeldTree& held, const BrowserTree& browser, const LostTime& lost, const Stamp& now)
      : _held(held), _browser(browser), _lost(lost), _now(now), _nodes(browser.nodes()) {}

  Intake run() {
    findDepartedRoots();
    releaseMobileRoot();
    adoptRoots();
    for (const HeldNode* const each : _held.topDown()) {
      _former.emplace(each->localId, *each);
      _formerOrder[each->parent].push_back(each->localId);
    }
    bindRoots();
    bindStandIns();
    matchReturned();
    noteMerged();
    matchById();
    matchInPlace();
    matchRest();
    reviveFolders();
    takeValues();
    untangle();
    dropGone();
    takeOrders();
    mustListAll();
    return _intake;
  }

 private:
  // --- Which node is which.

  // Nobody has deleted what was in a folder that the browser's account has taken along, or in whose place it
  // has put its own. By itself Chromium's for what comes from a phone vanishes when the user has emptied it.
  void findDepartedRoots() {
    for (const RootKind kind : kRootKinds) {
      const HeldNode* const node = _held.root(kind);
      if (!node) continue;
      const BrowserNode* const root = _browser.root(kind);
      const bool isAccountGone = node->isOfAccount && !_browser.isSyncedByBrowser();
      if (root ? root->id != node->browserId : kind != RootKind::mobile || isAccountGone)
        _departed.insert(folderOfRoot(kind));
    }
  }

  // Chromium has a folder for what comes from a phone only as long as something is in it. Otherwise the
  // truth's is a folder like any other.
  void releaseMobileRoot() {
    HeldNode* const node = _held.root(RootKind::mobile);
    if (!node || _browser.root(RootKind::mobile)) return;
    _held.endRoot(RootKind::mobile);
    node->showing = Showing::waiting;
    node->browserId.clear();
    node->title.isPending = true;
    if (const auto ordered = _held.ordered.extract(folderOfRoot(RootKind::mobile)))
      _held.ordered[node->localId] = ordered.mapped();
    _intake.lost = true;
  }

  void adoptRoots() {
    for (const RootKind kind : kRootKinds) {
      const BrowserNode* const root = _browser.root(kind);
      if (!root || _held.root(kind)) continue;
      const std::vector<std::string>& inRoot = _held.childrenOf({});
      const auto found = std::find_if(inRoot.begin(), inRoot.end(), [&](const std::string& each) {
        const HeldNode& node = *_held.find(each);
        return node.kind == NodeKind::folder && node.title.value == titleOfRoot(kind) &&
               node.isSpecial == isSpecialRoot(kind) && !node.root;
      });
      if (found != inRoot.end()) becomeRoot(*_held.find(*found), kind);
    }
  }

  void becomeRoot(HeldNode& node, RootKind kind) {
    if (node.showing == Showing::shown) node.standIn = node.browserId;
    node.showing = Showing::shown;
    node.shownIn.clear();
    node.title = {node.title.value, {}, false};
    _held.makeRoot(node.localId, kind);
    for (const HeldNode* const each : _held.topDown()) {
      if (each->shownIn == node.localId) _held.find(each->localId)->shownIn = folderOfRoot(kind);
    }
    if (const auto ordered = _held.ordered.extract(node.localId))
      _held.ordered[folderOfRoot(kind)] = ordered.mapped();
  }

  // The browser may lose that all of a stand-in was moved to its root, and that it was removed.
  void bindStandIns() {
    for (const RootKind kind : kRootKinds) {
      const HeldNode* const node = _held.root(kind);
      const BrowserNode* const standIn = node && _browser.root(kind) ? standInOf(*node) : nullptr;
      if (standIn) mergeInto(*standIn, folderOfRoot(kind));
    }
  }

  // Null for none. It may have got another id.
  const BrowserNode* standInOf(const HeldNode& node) const {
    if (node.standIn.empty()) return nullptr;
    const auto isIt = [&](const BrowserNode* each) {
      return each && !each->root && each->kind == NodeKind::folder && each->added == node.added.now;
    };
    if (const BrowserNode* const known = _browser.find(node.standIn); isIt(known)) return known;
    const auto found = std::find_if(_nodes.begin(), _nodes.end(), [&](const BrowserNode* each) {
      return isIt(each) && each->title == node.title.value.view();
    });
    return found == _nodes.end() ? nullptr : *found;
  }

  // What the browser shows in `node` lies in `folder`, to which it is moved; then the node is removed.
  void mergeInto(const BrowserNode& node, const std::string& folder) {
    if (node.kind == NodeKind::folder) {
      _folders[node.id] = folder;
      _shownTwice.insert(folder);
    }
    _doomed.insert(node.id);
    _merged.push_back({.kind = node.kind,
                       .browserId = node.id,
                       .title = node.title,
                       .url = node.url,
                       .added = {node.added, {}},
                       .changed = _now,
                       .isWaiting = true});
  }

  void noteMerged() {
    std::erase_if(_held.removed, [this](const RemovedNode& each) {
      return each.isWaiting && _doomed.contains(each.browserId);
    });
    _held.removed.insert(_held.removed.end(), _merged.begin(), _merged.end());
    _intake.lost |= !_merged.empty();
  }

  // A root may come back with what the stand-in for it shows by now. The root's own counts then.
  void matchReturned() {
    if (_shownTwice.empty()) return;
    const auto known = shownByBrowserId();
    std::unordered_set<std::string> inStandIn(_doomed);
    std::unordered_map<std::string, const BrowserNode*> copies;  // there, by local ids
    std::vector<const BrowserNode*> strangers;
    Candidates candidates;
    for (const BrowserNode* const node : _nodes) {
      if (!inStandIn.contains(node->parent)) continue;
      inStandIn.insert(node->id);
      const auto held = known.find(node->id);
      if (held == known.end() || held->second->added.now != node->added) {
        strangers.push_back(node);
      } else {
        const HeldNode& copied = *held->second;
        candidates.add(joined(copied.shownIn, node->kind, node->title, node->url), copied.localId);
        copies.emplace(copied.localId, node);
      }
    }
    for (const BrowserNode* const node : _nodes) {
      if (inStandIn.contains(node->id)) continue;
      if (const auto held = known.find(node->id); held != known.end()) {
        if (node->kind == NodeKind::folder) _folders[node->id] = held->second->localId;
        continue;
      }
      const std::string found =
          candidates.take(joined(folderOf(*node), node->kind, node->title, node->url), _matched);
      if (found.empty()) continue;
      match(*node, found);
      mergeInto(*copies.at(found), found);
    }
    mergeAgain(strangers);
  }

  // Folders of a stand-in that are to go, and are still there since something was in them, or are there
  // again.
  void mergeAgain(const std::vector<const BrowserNode*>& strangers) {
    if (strangers.empty()) return;
    std::unordered_map<std::string, std::int64_t> toGo;  // when they were added, by the browser's ids
    for (const RemovedNode& each : _held.removed) {
      if (isToGo(each) && each.kind == NodeKind::folder) toGo[each.browserId] = each.added.now;
    }
    std::unordered_map<std::string, std::string> folders;  // local ids, by where they are and their titles
    for (const auto& [localId, node] : _held.nodes()) {
      if (node.showing == Showing::shown && node.kind == NodeKind::folder)
        folders.emplace(joined(node.shownIn, node.kind, node.title.shown, {}), localId);
    }
    for (const BrowserNode* const node : strangers) {
      const auto known = toGo.find(node->id);
      const auto same = folders.find(joined(folderOf(*node), node->kind, node->title, {}));
      const bool goes = known != toGo.end() && known->second == node->added;
      if (goes && same != folders.end()) mergeInto(*node, same->second);
    }
  }

  void bindRoots() {
    for (const RootKind kind : kRootKinds) {
      const BrowserNode* const root = _browser.root(kind);
      if (root) _folders[root->id] = folderOfRoot(kind);
      HeldNode* const node = _held.root(kind);
      if (!root || !node) continue;
      node->browserId = root->id;
      node->isOfAccount = root->syncing;
    }
  }

  // How the held tree calls the folder that the node lies in; empty where that has not been matched yet.
  std::string folderOf(const BrowserNode& node) const {
    const auto found = _folders.find(node.parent);
    return found == _folders.end() ? std::string() : found->second;
  }

  std::unordered_map<std::string, const HeldNode*> shownByBrowserId() const {
    std::unordered_map<std::string, const HeldNode*> shown;
    for (const auto& [localId, node] : _held.nodes()) {
      if (node.showing == Showing::shown && !node.root) shown.emplace(node.browserId, &node);
    }
    return shown;
  }

  void match(const BrowserNode& node, const std::string& localId) {
    _matched.insert(localId);
    _localIds[node.id] = localId;
    if (node.kind == NodeKind::folder) _folders[node.id] = localId;
  }

  void matchById() {
    const auto byBrowserId = shownByBrowserId();
    for (const BrowserNode* const node : _nodes) {
      const bool isSettled = node->root || _doomed.contains(node->id);
      const auto found = isSettled ? byBrowserId.end() : byBrowserId.find(node->id);
      if (found == byBrowserId.end()) continue;
      const HeldNode& known = *found->second;
      if (known.kind != node->kind || known.added.now != node->added) continue;
      const bool agrees = known.title.shown == node->title || known.shownIn == folderOf(*node) ||
                          (node->kind == NodeKind::bookmark && known.url.shown == node->url);
      if (agrees) match(*node, known.localId);
    }
  }

  void collectCandidates() {
    for (const HeldNode* const each : _held.topDown()) {
      const HeldNode& node = *each;
      if (node.root || _matched.contains(node.localId)) continue;
      if (node.showing == Showing::shown) {
        _shown.add(joined(node.shownIn, node.kind, node.title.shown, node.url.shown), node.localId);
        if (node.kind != NodeKind::separator)
          _anywhere.add(joined({}, node.kind, node.title.shown, node.url.shown), node.localId);
        if (node.kind == NodeKind::bookmark) {
          _shownByTitle.add(joined(node.shownIn, node.kind, node.title.shown, {}), node.localId);
          _shownByAddress.add(joined(node.shownIn, node.kind, {}, node.url.shown), node.localId);
        }
      } else if (node.showing == Showing::waiting) {
        const std::string folder = _held.folderToShowIn(node);
        const std::string address = likenessOfAddress(node.url.value.view());
        _waiting.add(joined(folder, node.kind, likenessOfTitle(titleToShow(node)), address), node.localId);
        if (node.kind == NodeKind::bookmark)
          _waitingByAddress.add(joined(folder, node.kind, {}, address), node.localId);
      }
    }
  }

  // Empty for none.
  std::string candidateInPlace(const BrowserNode& node) {
    const std::string folder = folderOf(node);
    if (folder.empty()) return {};
    std::string found = _shown.take(joined(folder, node.kind, node.title, node.url), _matched);
    if (!found.empty()) return found;
    const std::string address = likenessOfAddress(node.url);
    found = _waiting.take(joined(folder, node.kind, likenessOfTitle(node.title), address), _matched);
    if (!found.empty() || node.kind != NodeKind::bookmark) return found;
    return _waitingByAddress.take(joined(folder, node.kind, {}, address), _matched);
  }

  // What has got another id and was edited before anybody looked. Empty for none.
  std::string editedCandidate(const BrowserNode& node) {
    const std::string folder = folderOf(node);
    if (folder.empty() || node.kind != NodeKind::bookmark) return {};
    const std::string found = _shownByAddress.take(joined(folder, node.kind, {}, node.url), _matched);
    if (!found.empty() || node.title.empty()) return found;
    return _shownByTitle.take(joined(folder, node.kind, node.title, {}), _matched);
  }

  void matchInPlace() {
    collectCandidates();
    for (const BrowserNode* const node : _nodes) {
      if (node->root || _localIds.contains(node->id) || _doomed.contains(node->id)) continue;
      if (const std::string found = candidateInPlace(*node); !found.empty()) match(*node, found);
    }
  }

  void matchRest() {
    findDoomed();
    for (const BrowserNode* const node : _nodes) {
      if (node->root || _localIds.contains(node->id) || _doomed.contains(node->id)) continue;
      std::string found = candidateInPlace(*node);
      if (found.empty() && node->kind != NodeKind::separator)
        found = _anywhere.take(joined({}, node->kind, node->title, node->url), _matched);
      if (found.empty()) found = editedCandidate(*node);
      match(*node, found.empty() ? Platform::current().uuids.newUuid().toString() : found);
    }
  }

  // --- What was deleted, and is still there or there again.

  bool isToGo(const RemovedNode& removed) const { return removed.isWaiting || _lost.covers(removed.changed); }

  // A folder into which the user has put something lives.
  void findDoomed() {
    for (RemovedNode& each : _held.removed) {
      if (!isToGo(each)) continue;
      enterToGo(each, each.added.now);
      for (const std::int64_t added : each.added.before) enterToGo(each, added);
    }
    for (auto node = _nodes.rbegin(); node != _nodes.rend(); ++node) {
      if ((*node)->root || _localIds.contains((*node)->id) || _doomed.contains((*node)->id)) continue;
      const std::vector<std::string>& children = _browser.childrenOf((*node)->id);
      const bool isEmpty = std::all_of(children.begin(), children.end(),
                                       [this](const std::string& id) { return _doomed.contains(id); });
      RemovedNode* const known = isEmpty ? removedLike(**node) : nullptr;
      if (!known) continue;
      _doomed.insert((*node)->id);
      if (!known->isWaiting) _intake.lost = true;
      known->isWaiting = true;
      known->browserId = (*node)->id;
      known->title = (*node)->title;
      known->url = (*node)->url;
    }
    // What is not there any more need not be removed.
    for (RemovedNode& each : _held.removed)
      each.isWaiting = each.isWaiting && _doomed.contains(each.browserId);
  }

  // What comes back may look as it did before it was changed, and then deleted.
  void enterToGo(RemovedNode& node, std::int64_t added) {
    const std::string time = std::to_string(added);
    _toGo.emplace(joined(time, node.kind, node.title, node.url), &node);
    if (!node.isWaiting) _toGo.emplace(joinedWithId(time, node.kind, node.browserId), &node);
  }

  static std::string joinedWithId(const std::string& time, NodeKind kind, const std::string& browserId) {
    return joined(time, kind, {}, {}) + '\0' + browserId;
  }

  // Each is found once; null for none.
  RemovedNode* removedLike(const BrowserNode& node) {
    const std::string time = std::to_string(node.added);
    for (const std::string& key :
         {joined(time, node.kind, node.title, node.url), joinedWithId(time, node.kind, node.id)}) {
      for (auto found = _toGo.find(key); found != _toGo.end(); found = _toGo.find(key)) {
        RemovedNode* const removed = found->second;
        _toGo.erase(found);
        if (_found.insert(removed).second) return removed;
      }
    }
    return nullptr;
  }

  // --- What was deleted by the user, and what lives on.

  // Of what is not in the browser.
  bool isGone(const HeldNode& node) const {
    return node.showing == Showing::shown && !node.root && !_matched.contains(node.localId) &&
           !isUnderDepartedRoot(node) && !_lost.isFromElsewhere && !_lost.covers(node.changed) &&
           !_revived.contains(node.localId);
  }

  bool isUnderDepartedRoot(const HeldNode& node) const {
    std::vector<std::string> way;  // up, as far as nobody has gone it yet
    std::string at = node.shownIn;
    while (!rootOfFolder(at) && _former.contains(at) && !_underDepartedRoot.contains(at)) {
      way.push_back(at);
      at = _former.at(at).shownIn;
    }
    const auto known = _underDepartedRoot.find(at);
    const bool isUnder = known != _underDepartedRoot.end() ? known->second : _departed.contains(at);
    for (const std::string& each : way) _underDepartedRoot.emplace(each, isUnder);
    return isUnder;
  }

  // Whether it was to be put, and has not been, where it is.
  bool isOnItsWay(const HeldNode& node) const {
    if (node.showing == Showing::waiting || (!isGone(node) && !_matched.contains(node.localId))) return true;
    return node.showing == Showing::shown && _held.folderToShowIn(node) != node.shownIn;
  }

  void reviveFolders() {
    for (const HeldNode* const each : _held.topDown()) {
      if (each->root || each->showing == Showing::refused || !isOnItsWay(*each) || isGone(*each)) continue;
      for (const HeldNode* at = _held.find(each->parent); at && isGone(*at); at = _held.find(at->parent)) {
        _revived.insert(at->localId);
      }
    }
  }

  // --- What the nodes say.

  void takeValues() {
    for (const BrowserNode* const node : _nodes) {
      if (node->root || _doomed.contains(node->id)) continue;
      const std::string& localId = _localIds.at(node->id);
      const std::string folder = _folders.at(node->parent);
      HeldNode* const known = _held.find(localId);
      if (known) {
        takeNode(*known, *node, folder);
      } else {
        addNode(*node, localId, folder);
      }
      HeldNode& held = *_held.find(localId);
      held.browserId = node->id;
      held.added.set(node->added);
      held.shownIn = folder;
      held.showing = Showing::shown;
      std::vector<std::string>& siblings = _inFolder[folder];
      held.shownIndex = static_cast<std::int64_t>(siblings.size());
      siblings.push_back(localId);
    }
  }

  void addNode(const BrowserNode& node, const std::string& localId, const std::string& folder) {
    HeldNode held;
    held.localId = localId;
    held.kind = node.kind;
    held.title = {titleFor(node), node.title, false};
    held.url = {node.kind == NodeKind::bookmark ? String(node.url) : String(), node.url, false};
    held.parent = parentFor(folder);
    held.changed = _now;
    _held.add(std::move(held));
    if (node.kind != NodeKind::separator) ++_intake.edits;
  }

  void takeNode(HeldNode& held, const BrowserNode& node, const std::string& folder) {
    const bool isNew = held.showing != Showing::shown;
    const bool isLost = !isNew && _lost.covers(held.changed);
    // Also of ours, of which the answer may have been lost with the host.
    const bool isAnother =
        isNew || held.title.shown != node.title || held.url.shown != node.url || folder != held.shownIn;
    if (isAnother && !isLost) held.changed = _now;
    bool edited =
        takeForm(held.title, node.title, titleFor(node), isNew, isLost, held.isSpecial, likenessOfTitle);
    if (node.kind == NodeKind::bookmark)
      edited |= takeForm(held.url, node.url, String(node.url), isNew, isLost, false, likenessOfAddress);
    if (!isNew && folder != held.shownIn && folder != _held.folderToShowIn(held)) {
      if (isLost || held.isSpecial) {
        _intake.lost |= isLost;
      } else {
        held.parent = parentFor(folder);
        edited = true;
      }
    }
    if (edited && held.kind != NodeKind::separator) ++_intake.edits;
  }

  // Whether the user has changed it.
  bool takeForm(Form& form, const std::string& shown, const String& value, bool isNew, bool isLost,
                bool isFixed, std::string (*likeness)(std::string_view)) {
    if (!isNew && form.shown == shown) return false;
    // Ours may have come there without an answer that says so.
    const bool isOurs = (isNew || form.isPending) && likeness(form.value.view()) == likeness(shown);
    if (isOurs || isFixed) {
      form.shown = shown;
      form.isPending = false;
      return false;
    }
    if (isLost) {
      form.shown = shown;
      form.isPending = true;
      _intake.lost = true;
      return false;
    }
    form = {value, shown, false};
    return true;
  }

  // The folder of the truth that what the browser shows in `folder` lies in.
  std::string parentFor(const std::string& folder) {
    const auto kind = rootOfFolder(folder);
    if (!kind) return folder;
    if (const HeldNode* const known = _held.root(*kind)) return known->localId;
    HeldNode root;
    root.localId = Platform::current().uuids.newUuid().toString();
    root.kind = NodeKind::folder;
    root.title = {String(titleOfRoot(*kind)), {}, false};
    root.url.isPending = false;
    root.isSpecial = isSpecialRoot(*kind);
    root.root = *kind;
    root.showing = Showing::shown;
    root.browserId = _browser.root(*kind)->id;
    root.isOfAccount = _browser.root(*kind)->syncing;
    root.changed = _now;
    ++_intake.edits;
    return _held.add(std::move(root)).localId;
  }

  // The user may have moved a folder into one that was still to be moved into it. The browser, which shows no
  // folder within itself, is right: what was to be moved stays.
  void untangle() {
    std::vector<std::string> localIds;
    for (const auto& [localId, node] : _held.nodes()) localIds.push_back(localId);
    std::unordered_set<std::string> untangled;
    for (const std::string& each : localIds) {
      for (auto cycle = cycleAbove(each, untangled); !cycle.empty(); cycle = cycleAbove(each, untangled))
        keepWhereShown(cycle);
    }
  }

  // The folders that the way up from a node comes back to; none where it ends at the truth's root, as the
  // ways of all `untangled` ones do.
  std::vector<std::string> cycleAbove(const std::string& localId,
                                      std::unordered_set<std::string>& untangled) const {
    std::vector<std::string> path;
    std::unordered_set<std::string> passed;
    const HeldNode* at = _held.find(localId);
    for (; at && !untangled.contains(at->localId); at = _held.find(at->parent)) {
      if (!passed.insert(at->localId).second)
        return {std::find(path.begin(), path.end(), at->localId), path.end()};
      path.push_back(at->localId);
    }
    untangled.insert(path.begin(), path.end());
    return {};
  }

  // What is neither one of the browser's own folders nor on its way lies as the browser shows it, so that at
  // least one of a cycle is changed.
  void keepWhereShown(const std::vector<std::string>& cycle) {
    for (const std::string& each : cycle) {
      HeldNode& node = *_held.find(each);
      const bool isOnlyToBeMoved =
          node.showing == Showing::shown && !node.root && _held.folderToShowIn(node) != node.shownIn;
      if (!node.root && !isOnlyToBeMoved) continue;
      if (node.root) {
        node.parent.clear();
        // Nothing shows it there, by which `takeOrder` would find it.
        std::vector<std::string> children = _held.childrenOf({});
        children.push_back(each);
        _held.setChildren({}, std::move(children));
      } else {
        node.parent = parentFor(node.shownIn);
      }
      node.changed = _now;
      ++_intake.edits;
    }
  }

  // --- What is no more.

  void dropGone() {
    std::vector<std::string> gone;
    for (const auto& [localId, former] : _former) {
      HeldNode& node = *_held.find(localId);
      if (node.root || _matched.contains(localId) || node.showing != Showing::shown) continue;
      if (isGone(node)) {
        gone.push_back(localId);
      } else {
        awaitAgain(node);
      }
    }
    for (const std::string& each : gone) remember(_former.at(each));
    for (const std::string& each : gone) _held.drop(each);
    dropOrphans();
    forgetOldest();
  }

  // Of what was deleted long ago; what is still to be removed is none of that.
  void forgetOldest() {
    std::size_t excess = _held.removed.size() - std::min(_held.removed.size(), kMostRemovedNodes);
    std::erase_if(_held.removed, [&excess](const RemovedNode& each) {
      if (excess == 0 || each.isWaiting) return false;
      --excess;
      return true;
    });
  }

  // The browser has lost it, or somebody else still needs it.
  void awaitAgain(HeldNode& node) {
    _intake.lost = true;
    node.showing = node.kind == NodeKind::separator ? Showing::refused : Showing::waiting;
    node.browserId.clear();
    node.shownIn.clear();
    node.title.isPending = node.url.isPending = true;
  }

  void remember(const HeldNode& node) {
    _held.removed.push_back({.kind = node.kind,
                             .browserId = node.browserId,
                             .title = node.title.shown,
                             .url = node.url.shown,
                             .added = node.added,
                             .changed = _now});
    if (node.kind != NodeKind::separator) ++_intake.edits;
  }

  // What the browser never showed goes with its folder.
  void dropOrphans() {
    std::unordered_map<std::string, bool> isOrphan{{std::string(), false}};
    for (const auto& [localId, node] : _held.nodes()) {
      std::vector<std::string> path;
      std::string folder = localId;
      while (!isOrphan.contains(folder) && _held.find(folder)) {
        path.push_back(folder);
        folder = _held.find(folder)->parent;
      }
      const auto above = isOrphan.find(folder);
      const bool leadsNowhere = above == isOrphan.end() || above->second;
      for (const std::string& each : path) isOrphan.emplace(each, leadsNowhere);
    }
    isOrphan.erase(std::string());
    for (const auto& [localId, leadsNowhere] : isOrphan) {
      if (leadsNowhere) _held.drop(localId);
    }
  }

  // --- In which order.

  void takeOrders() {
    std::unordered_map<std::string, std::vector<std::string>> now;
    for (const auto& [localId, node] : _held.nodes()) now[node.parent].push_back(localId);
    for (auto& [folder, children] : now) takeOrder(folder);
    for (const auto& [folder, children] : _formerOrder) {
      if (!now.contains(folder)) _held.setChildren(folder, {});
    }
  }

  void takeOrder(const std::string& folder) {
    const HeldNode* const own = _held.find(folder);
    const std::string shownAs = folder.empty()     ? folderOfRoot(RootKind::other)
                                : own && own->root ? folderOfRoot(*own->root)
                                                   : folder;
    const auto liesHere = [&](const std::string& localId) {
      const HeldNode* const node = _held.find(localId);
      return node && node->parent == folder;
    };
    std::vector<std::string> before = _formerOrder[folder];
    std::erase_if(before, [&](const std::string& each) { return !liesHere(each); });
    std::vector<std::string> shown = _inFolder[shownAs];
    std::erase_if(shown, [&](const std::string& each) { return !liesHere(each); });
    // What has come from elsewhere without being shown here: roots, and what waits.
    std::vector<std::string> rest = _held.childrenOf(folder);
    std::erase_if(rest, [&](const std::string& each) { return !liesHere(each); });
    std::vector<std::string> order;
    if (isReordered(shown, before, shownAs)) {
      order = withOthers(shown, before);
    } else {
      order = withOthers(before, shown);
    }
    _held.setChildren(folder, withOthers(order, rest));
  }

  // Whether the user has put those that stayed into another order.
  bool isReordered(const std::vector<std::string>& shown, const std::vector<std::string>& before,
                   const std::string& folder) {
    const std::unordered_set<std::string> known(before.begin(), before.end());
    std::int64_t last = -1;
    bool differs = false;
    for (const std::string& each : shown) {
      const auto former = known.contains(each) ? _former.find(each) : _former.end();
      if (former == _former.end() || former->second.shownIn != folder) continue;
      if (former->second.showing != Showing::shown) continue;
      differs |= former->second.shownIndex < last;
      last = former->second.shownIndex;
    }
    if (!differs || _shownTwice.contains(folder)) return false;
    const auto ordered = _held.ordered.find(folder);
    const bool isLost = ordered != _held.ordered.end() && _lost.covers(ordered->second);
    const bool hasArrived = wasOnItsWay(before, folder);
    // Of ours, of which the answer may have been lost with the host.
    if (hasArrived && !isLost) _held.ordered[folder] = _now;
    if (isLost || hasArrived) {
      _intake.lost = true;
      return false;
    }
    _held.ordered[folder] = _now;
    ++_intake.edits;
    return true;
  }

  // Whether what the folder showed was still to be put into the order that the client holds.
  bool wasOnItsWay(const std::vector<std::string>& held, const std::string& folder) const {
    std::int64_t last = -1;
    for (const std::string& each : held) {
      const HeldNode& former = _former.at(each);
      if (former.showing != Showing::shown || former.shownIn != folder) continue;
      if (former.shownIndex < last) return true;
      last = former.shownIndex;
    }
    return false;
  }

  // The engine takes for deleted what it is not given, and is given what the lists lead to.
  void mustListAll() const {
    if (_held.topDown().size() == _held.nodes().size()) return;
    throw PlatformException(NSGenericException,
                            Message("What this browser shows cannot be brought into an order that could be "
                                    "synced, so nothing is synced."));
  }

  // The list with what only the other one has, each behind the one that precedes it there, or before the one
  // that follows.
  static std::vector<std::string> withOthers(const std::vector<std::string>& list,
                                             const std::vector<std::string>& others) {
    const std::unordered_set<std::string> listed(list.begin(), list.end());
    std::unordered_map<std::string, std::vector<std::string>> behind;
    std::vector<std::string> leading;
    std::string last;
    std::string first;
    for (const std::string& each : others) {
      if (listed.contains(each)) {
        last = each;
        if (first.empty()) first = each;
      } else if (last.empty()) {
        leading.push_back(each);
      } else {
        behind[last].push_back(each);
      }
    }
    std::vector<std::string> all;
    for (const std::string& each : list) {
      if (each == first) all.insert(all.end(), leading.begin(), leading.end());
      all.push_back(each);
      if (const auto found = behind.find(each); found != behind.end())
        all.insert(all.end(), found->second.begin(), found->second.end());
    }
    if (first.empty()) all.insert(all.end(), leading.begin(), leading.end());
    return all;
  }

  HeldTree& _held;
  const BrowserTree& _browser;
  const LostTime& _lost;
  const Stamp& _now;
  std::vector<const BrowserNode*> _nodes;
  Intake _intake;
  std::unordered_map<std::string, HeldNode> _former;  // by local id, as they were
  std::unordered_map<std::string, std::vector<std::string>> _formerOrder;
  // Of folders as they were, as far as somebody has asked.
  mutable std::unordered_map<std::string, bool> _underDepartedRoot;
  std::unordered_set<std::string> _departed;  // roots that are not the browser's any more
  std::unordered_map<std::string, std::string>
      _folders;  // what the held tree calls a folder, by the browser's id
  std::unordered_map<std::string, std::string> _localIds;  // by the browser's id
  std::unordered_set<std::string> _matched;                // local ids
  std::multimap<std::string, RemovedNode*> _toGo;          // by what they look like, and by their ids
  std::unordered_set<const RemovedNode*> _found;           // of those
  std::unordered_set<std::string> _doomed;                 // ids of the browser
  std::vector<RemovedNode> _merged;                        // of those, what others take the place of
  std::unordered_set<std::string> _shownTwice;             // folders of which the browser shows two
  std::unordered_set<std::string> _revived;                // local ids
  std::unordered_map<std::string, std::vector<std::string>>
      _inFolder;  // what the browser shows, as local ids
  Candidates _shown, _anywhere, _shownByTitle, _shownByAddress, _waiting, _waitingByAddress;
};

}  // namespace

Intake takeIn(HeldTree& held, const BrowserTree& browser, const LostTime& lost, const Stamp& now) {
  return TakingIn(held, browser, lost, now).run();
}

}  // namespace corvane::browsers
