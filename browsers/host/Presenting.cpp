#include "browsers/host/Presenting.h"

#include <algorithm>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "browsers/host/MessageProblem.h"

namespace corvane::browsers {

namespace {

using Outcome = ChangeAnswer::Outcome;

// Those of the numbers that stay when the fewest others are moved: places in `numbers` of a longest ascending
// run (Fredman 1975).
std::vector<std::size_t> longestAscending(const std::vector<std::size_t>& numbers) {
  std::vector<std::size_t> ends;  // of the runs of each length, the one that ends lowest
  std::vector<std::size_t> before(numbers.size(), numbers.size());
  for (std::size_t at = 0; at < numbers.size(); ++at) {
    const auto end =
        std::lower_bound(ends.begin(), ends.end(), numbers[at],
                         [&](std::size_t place, std::size_t number) { return numbers[place] < number; });
    if (end != ends.begin()) before[at] = *(end - 1);
    if (end == ends.end()) {
      ends.push_back(at);
    } else {
      *end = at;
    }
  }
  std::vector<std::size_t> run;
  for (std::size_t at = ends.empty() ? numbers.size() : ends.back(); at < numbers.size(); at = before[at]) {
    run.push_back(at);
  }
  return run;
}

// What is made by one request: few enough to be stopped soon, and to fit into a message, in which JSON may
// write each byte with six.
constexpr std::size_t kMostNodesAtOnce = 64;
constexpr std::size_t kMostTextAtOnce = std::size_t{32} * 1024;  // bytes of titles and addresses

class Presenter {
 public:
  Presenter(HeldTree& held, BrowserTree& browser, ExtensionRequests& requests, const Stamp& now,
            const PresentingProgress& progress)
      : _held(held), _browser(browser), _requests(requests), _now(now), _progress(progress) {}

  Presented run() {
    try {
      presentAll();
    } catch (const PlatformException&) {
      notePlaces();  // the connection has ended; what was done until then is known
      throw;
    }
    notePlaces();
    return {!_stopped, _isDifferent};
  }

 private:
  void presentAll() {
    count();
    for (const RootKind kind : kRootKinds) {
      const BrowserNode* const root = _browser.root(kind);
      if (root) _open.emplace_back(folderOfRoot(kind), root->id);
    }
    while (!_open.empty() && !_stopped) {
      const auto [folder, browserId] = std::move(_open.back());
      _open.pop_back();
      presentFolder(folder, browserId);
    }
    if (!_stopped) removeAll();
    std::erase_if(_held.removed,
                  [this](const RemovedNode& each) { return _living.contains(each.browserId); });
  }

  bool isToBeShown(const HeldNode& node) const {
    if (node.showing != Showing::refused) return true;
    return node.kind != NodeKind::separator && (node.title.isPending || node.url.isPending);
  }

  void count() {
    for (const auto& [localId, node] : _held.nodes()) {
      const bool differs =
          node.showing == Showing::waiting || node.title.isPending || node.url.isPending ||
          (node.showing == Showing::shown && !node.root && node.shownIn != _held.folderToShowIn(node));
      if (differs && isToBeShown(node)) ++_of;
    }
    _of += static_cast<std::size_t>(std::count_if(_held.removed.begin(), _held.removed.end(),
                                                  [](const RemovedNode& each) { return each.isWaiting; }));
  }

  // Whether to go on with another request.
  bool goesOn() {
    _stopped = _stopped || !_progress(std::min(_done, _of), _of);
    ++_done;
    return !_stopped;
  }

  // --- Folders, from the roots down.

  void presentFolder(const std::string& folder, const std::string& browserId) {
    std::vector<std::string> wanted = _held.toShowIn(folder);
    std::erase_if(wanted, [this](const std::string& each) { return !isToBeShown(*_held.find(each)); });
    const std::unordered_set<std::string> staying = stayingIn(browserId, wanted);
    std::string last;      // the browser's id of what precedes
    std::size_t made = 0;  // what stands before it was to be made, and has been tried
    for (std::size_t at = 0; at < wanted.size(); ++at) {
      if (_stopped) return;
      HeldNode& node = *_held.find(wanted[at]);
      bool hasPlace = true;
      if (at >= made && node.showing != Showing::shown) {
        made = createFrom(at, wanted, folder, browserId, last);
      } else if (at >= made && !staying.contains(node.browserId)) {
        hasPlace = !node.isSpecial;  // which stays where it is, be it among what comes later
        if (hasPlace) move(node, folder, browserId, last);
      }
      if (_stopped || node.showing != Showing::shown) continue;
      update(node);
      const BrowserNode* const shown = _browser.find(node.browserId);
      if (hasPlace && shown && shown->parent == browserId) last = node.browserId;
      if (shown && node.kind == NodeKind::folder) _open.emplace_back(node.localId, node.browserId);
    }
  }

  // Of what is in the folder already, by the browser's ids, what keeps its place.
  std::unordered_set<std::string> stayingIn(const std::string& browserId,
                                            const std::vector<std::string>& wanted) {
    std::unordered_map<std::string, std::size_t> places;
    for (const std::string& each : _browser.childrenOf(browserId)) places.emplace(each, places.size());
    std::vector<std::size_t> numbers;
    std::vector<std::string> ids;
    for (const std::string& each : wanted) {
      const HeldNode& node = *_held.find(each);
      const auto place = node.showing == Showing::shown ? places.find(node.browserId) : places.end();
      if (place == places.end()) continue;
      numbers.push_back(place->second);
      ids.push_back(node.browserId);
    }
    std::unordered_set<std::string> staying;
    for (const std::size_t at : longestAscending(numbers)) staying.insert(ids[at]);
    return staying;
  }

  // The place in the folder behind `last`, which lies there, or the first; as it counts once `moved` is taken
  // out.
  std::size_t indexBehind(const std::string& folder, const std::string& last,
                          const std::string& moved) const {
    if (last.empty()) return 0;
    const std::size_t place = _browser.indexOf(last);
    const BrowserNode* const leaving = _browser.find(moved);
    const bool isBefore = leaving && leaving->parent == folder && _browser.indexOf(moved) < place;
    return place + (isBefore ? 0 : 1);
  }

  // Chromium would make a folder of a bookmark without an address; no browser tells a separator of ours.
  static bool canBeMade(const HeldNode& node) {
    return node.kind == NodeKind::folder || (node.kind == NodeKind::bookmark && !node.url.value.empty());
  }

  // Makes the node at that place of `wanted`, and those behind it that are to be made as well. Answers the
  // place behind what has been tried.
  std::size_t createFrom(std::size_t at, const std::vector<std::string>& wanted, const std::string& folder,
                         const std::string& browserId, const std::string& last) {
    std::vector<HeldNode*> held;
    std::vector<NewNode> nodes;
    std::size_t text = 0;
    for (; at < wanted.size() && nodes.size() < kMostNodesAtOnce; ++at) {
      HeldNode& node = *_held.find(wanted[at]);
      if (node.showing == Showing::shown) break;
      if (!canBeMade(node)) {
        refuse(node);
        continue;
      }
      NewNode next{titleToShow(node), std::nullopt};
      if (node.kind == NodeKind::bookmark) next.url = node.url.value.toString();
      text += next.title.size() + next.url.value_or("").size();
      if (!nodes.empty() && text > kMostTextAtOnce) break;
      held.push_back(&node);
      nodes.push_back(std::move(next));
    }
    if (nodes.empty() || !goesOn()) return at;
    std::size_t answered = 0;
    _requests.create(browserId, indexBehind(browserId, last, {}), nodes, [&](const ChangeAnswer& answer) {
      if (answered > 0) goesOn();
      takeMade(*held[answered++], folder, answer);
    });
    return at;
  }

  void takeMade(HeldNode& node, const std::string& folder, const ChangeAnswer& answer) {
    if (answer.outcome == Outcome::refused) return refuse(node);
    if (answer.outcome == Outcome::done && _browser.find(answer.node->node.id))
      throw MessageProblem("The extension says that it has made a node that was there before.");
    if (answer.outcome == Outcome::different || !isMadeOf(node, *answer.node)) {
      _isDifferent = true;
      return;
    }
    node.showing = Showing::shown;
    node.browserId = answer.node->node.id;
    node.shownIn = folder;
    node.added.set(answer.node->node.added);
    take(node, *answer.node, true, true);
  }

  // Whether the answer is about a node of that kind.
  static bool isMadeOf(const HeldNode& node, const PlacedNode& made) { return made.node.kind == node.kind; }

  static void refuse(HeldNode& node) {
    node.showing = Showing::refused;
    node.title.isPending = node.url.isPending = false;
  }

  void move(HeldNode& node, const std::string& folder, const std::string& browserId,
            const std::string& last) {
    const BrowserNode* const shown = _browser.find(node.browserId);
    if (!shown || !goesOn()) return;
    const BrowserNode before = *shown;
    const ChangeAnswer answer = _requests.move(before, browserId, indexBehind(browserId, last, before.id));
    if (answer.outcome == Outcome::done) {
      take(node, *answer.node, false, false);
      _held.ordered[folder] = _now;
    } else if (answer.outcome == Outcome::different) {
      _isDifferent = true;
    }
  }

  void update(HeldNode& node) {
    if (!node.title.isPending && !node.url.isPending) return;
    const BrowserNode* const shown = _browser.find(node.browserId);
    if (!shown) return;
    const BrowserNode before = *shown;
    const std::string title = titleToShow(node);
    const std::string url = node.url.value.toString();
    const auto changed = [](bool isPending, const std::string& now, const std::string& then) {
      return isPending && now != then ? std::optional(now) : std::nullopt;
    };
    const auto newTitle = changed(node.title.isPending, title, before.title);
    auto newUrl = changed(node.url.isPending && node.kind == NodeKind::bookmark, url, before.url);
    if (url.empty()) newUrl.reset();
    updateEach(node, newTitle, std::nullopt);
    updateEach(node, std::nullopt, newUrl);
    if (!newTitle) node.title.isPending = false;
    if (!newUrl) node.url.isPending = false;
  }

  // One value at a time, since an address that is refused does not keep the title back.
  void updateEach(HeldNode& node, const std::optional<std::string>& title,
                  const std::optional<std::string>& url) {
    if ((!title && !url) || !goesOn()) return;
    const BrowserNode before = *_browser.find(node.browserId);
    const ChangeAnswer answer = _requests.update(before, title, url);
    if (answer.outcome == Outcome::done) {
      PlacedNode updated = *answer.node;
      // Where the user has moved it meanwhile, that is still to be taken in.
      _isDifferent |= updated.node.parent != before.parent;
      updated.node.parent = before.parent;
      updated.index = _browser.indexOf(before.id);
      take(node, updated, title.has_value(), url.has_value());
    } else if (answer.outcome == Outcome::different) {
      _isDifferent = true;
    } else {
      (title ? node.title : node.url).isPending = false;  // as good as the browser can hold it
    }
  }

  // What the browser has made of a change.
  void take(HeldNode& node, const PlacedNode& placed, bool title, bool url) {
    if (title) node.title = {node.title.value, placed.node.title, false};
    if (url) node.url = {node.url.value, placed.node.url, false};
    node.changed = _now;
    if (placed.node.id == node.browserId) _browser.put(placed.node, placed.index);
  }

  // --- Removing, from the leaves up.

  void removeAll() {
    std::unordered_map<std::string, RemovedNode*> waiting;
    for (RemovedNode& each : _held.removed) {
      if (each.isWaiting) waiting.emplace(each.browserId, &each);
    }
    if (waiting.empty()) return;
    std::vector<std::string> bottomUp;
    for (const BrowserNode* const each : _browser.nodes()) {
      if (waiting.contains(each->id)) bottomUp.push_back(each->id);
    }
    std::reverse(bottomUp.begin(), bottomUp.end());
    for (const std::string& id : bottomUp) {
      if (!goesOn()) return;
      removeOne(*waiting.at(id), id);
      waiting.erase(id);
    }
    for (const auto& [id, removed] : waiting) removed->isWaiting = false;  // it is gone already
  }

  void removeOne(RemovedNode& removed, const std::string& id) {
    BrowserNode node = *_browser.find(id);
    node.title = removed.title;
    node.url = removed.url;
    const ChangeAnswer answer = _requests.remove(node);
    removed.isWaiting = false;
    removed.changed = _now;
    if (answer.outcome == Outcome::done) {
      _browser.remove(id);
    } else {
      // The user has changed it, or has put something into it: it lives, as a new one.
      _isDifferent = true;
      _living.insert(id);
    }
  }

  // --- Where all is now.

  void notePlaces() {
    std::unordered_map<std::string, std::string> folders;
    for (const RootKind kind : kRootKinds) {
      if (const BrowserNode* const root = _browser.root(kind)) folders[root->id] = folderOfRoot(kind);
    }
    std::unordered_map<std::string, HeldNode*> shown;
    for (const HeldNode* const each : _held.topDown()) {
      if (each->showing != Showing::shown || each->root) continue;
      shown.emplace(each->browserId, _held.find(each->localId));
      if (each->kind == NodeKind::folder) folders[each->browserId] = each->localId;
    }
    for (const auto& [browserId, folder] : folders) {
      std::int64_t index = 0;
      for (const std::string& child : _browser.childrenOf(browserId)) {
        const auto node = shown.find(child);
        if (node == shown.end()) continue;
        node->second->shownIn = folder;
        node->second->shownIndex = index++;
      }
    }
  }

  HeldTree& _held;
  BrowserTree& _browser;
  ExtensionRequests& _requests;
  const Stamp& _now;
  const PresentingProgress& _progress;
  std::vector<std::pair<std::string, std::string>>
      _open;                                // folders: as the held tree calls them, the browser's ids
  std::unordered_set<std::string> _living;  // what was to be removed and is not, by the browser's ids
  std::size_t _done = 0;
  std::size_t _of = 0;
  bool _stopped = false;
  bool _isDifferent = false;
};

}  // namespace

Presented present(HeldTree& held, BrowserTree& browser, ExtensionRequests& requests, const Stamp& now,
                  const PresentingProgress& progress) {
  return Presenter(held, browser, requests, now, progress).run();
}

}  // namespace corvane::browsers
