#include "tests/browser-host/BrowserProperties.h"

#include <rapidcheck.h>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "browsers/host/Likeness.h"
#include "tests/browser-host/HostedBrowser.h"
#include "tests/kit/PropertyCheck.h"
#include "tests/kit/Steps.h"

namespace corvane {

namespace {

using browsers::NodeKind;
using browsers::RootKind;
using kit::chosen;
using kit::require;

constexpr const char* kStandIn = "Bookmarks Menu";

enum class Event : int {
  addBookmark,
  addFolder,
  rename,
  readdress,
  move,
  nest,
  erase,
  fillMobile,
  moveMeanwhile,
  crossFolders,
  sync,
  quit,
  killBrowser,
  killBrowserLater,
  restartHost,
  killHostLater,
  renewIds,
  backUp,
  restore,
  takeTurns
};

struct Occurrence {
  Event event = Event::sync;
  unsigned client = 0;
  unsigned entry = 0;
  unsigned folder = 0;
  unsigned index = 0;
};

std::ostream& operator<<(std::ostream& out, const Occurrence& step) {
  return out << "{Event(" << static_cast<int>(step.event) << "), " << step.client << ", " << step.entry
             << ", " << step.folder << ", " << step.index << "}";
}

rc::Gen<std::vector<Occurrence>> histories(std::vector<std::pair<std::size_t, Event>> weights) {
  std::vector<Event> kinds;
  for (const auto& [weight, event] : weights) kinds.insert(kinds.end(), weight, event);
  const auto number = rc::gen::inRange(0U, 12U);
  return rc::gen::container<std::vector<Occurrence>>(rc::gen::build<Occurrence>(
      rc::gen::set(&Occurrence::event, rc::gen::elementOf(kinds)), rc::gen::set(&Occurrence::client, number),
      rc::gen::set(&Occurrence::entry, number), rc::gen::set(&Occurrence::folder, number),
      rc::gen::set(&Occurrence::index, number)));
}

using enum Event;
const std::vector<std::pair<std::size_t, Event>> kOrdinary = {
    {4, addBookmark}, {3, addFolder},        {2, rename},        {2, readdress},    {4, move}, {4, nest},
    {2, erase},       {1, fillMobile},       {2, moveMeanwhile}, {2, crossFolders}, {7, sync}, {1, quit},
    {1, killBrowser}, {1, killBrowserLater}, {1, restartHost},   {1, killHostLater}};

// What a client's top folders hold, each child as one text with all that is in it.
using Tops = std::map<std::string, std::vector<std::string>>;

class RandomBrowsers {
 public:
  RandomBrowsers() : _file(_home.makeClient("file")) {
    _browsers[1].browser.token = "22222222-2222-4222-8222-222222222222";
    // Something that nobody deletes keeps the guard out of these histories.
    for (int i = 0; i < 3; ++i) _file->addBookmark("", newTitle(), "http://anchor/" + std::to_string(i));
    _anchors = _given;
    sync(kFile);
  }

  void carryOut(const Occurrence& step) {
    // Mostly less than what Chromium takes to write, so that it has something to lose.
    pass(step.index % 4 == 0 ? 4 : 0);
    const unsigned client = step.client % 3;
    happen(step, client);
    noteKills(client);
  }

  void happen(const Occurrence& step, unsigned client) {
    HostedBrowser* const hosted = client == kFile ? nullptr : &_browsers[client];
    switch (step.event) {
      case Event::sync:
        return sync(client);
      case quit:
        if (hosted) hosted->quit();
        return;
      case killBrowser:
        if (hosted && hosted->browser.isRunning()) hosted->kill();
        return;
      case killBrowserLater:
        if (hosted) hosted->killBrowserAt(static_cast<int>(step.entry) + 1);
        return;
      case restartHost:
        if (hosted) hosted->restartHost();
        return;
      case killHostLater:
        if (hosted) hosted->killHostAt(static_cast<int>(step.entry) + 1);
        return;
      case renewIds:
        if (hosted && hosted->browser.isRunning()) hosted->browser.renewIds();
        return;
      case backUp:
        if (hosted && !hosted->browser.isRunning()) _backups.insert_or_assign(client, hosted->browser);
        return;
      case restore:
        if (hosted && !hosted->browser.isRunning() && _backups.contains(client)) {
          hosted->browser.restore(_backups.at(client));
          forgetUnsynced(client);
        }
        return;
      case takeTurns:
        if (hosted && !hosted->browser.isRunning() && _backups.contains(client)) {
          const ScriptedBrowser resting = std::exchange(_backups.at(client), hosted->browser);
          hosted->browser.restore(resting);
          forgetUnsynced(client);
        }
        return;
      case moveMeanwhile:
        if (hosted) moveBeforeNextChange(*hosted, client, step);
        return;
      case Event::crossFolders:
        if (hosted) crossFolders(*hosted, client, step);
        return;
      case fillMobile:
        if (hosted) fillMobileRoot(*hosted, client);
        return;
      default:
        return hosted ? editBrowser(*hosted, client, step) : editFile(step);
    }
  }

  void settle() {
    for (HostedBrowser& each : _browsers) {
      each.killHostAt(0);
      each.killBrowserAt(0);
      each.beforeNextChange = nullptr;
    }
    for (int round = 0; round < 3; ++round) {
      for (unsigned client = 0; client < 3; ++client) sync(client);
    }
  }

  void requireConverged() {
    const Tops file = topsOfFile();
    for (const HostedBrowser& each : _browsers) requireLike(file, topsOf(each.browser));
    const auto revision = loomer::RecordTable(_home.store()).state().revision;
    const std::string before = _browsers[0].text() + _browsers[1].text() + _file->text();
    for (unsigned client = 0; client < 3; ++client) sync(client);
    require(loomer::RecordTable(_home.store()).state().revision == revision,
            "a session with nothing new changes the truth");
    require(before == _browsers[0].text() + _browsers[1].text() + _file->text(),
            "a session with nothing new changes a tree");
    requireSound(_home.store());
    require(_platform.log.messages.empty(), "the log is not empty");
  }

  void requireNothingLost() {
    std::map<std::string, int> counts;
    for (const auto& [id, node] : _file->nodes) ++counts[node.name.toString()];
    for (const std::string& title : _given) {
      if (counts[title] > 1) require(false, title + " is there more than once\n" + _file->text());
      if (counts[title] == 0 && !_gone.contains(title))
        require(false, title + " vanished though nobody deleted it\n" + _file->text());
    }
  }

 private:
  static constexpr unsigned kFile = 2;

  void pass(unsigned seconds) {
    _platform.clock.time.seconds += seconds;
    for (HostedBrowser& each : _browsers) each.browser.pass(seconds * 1000);
  }

  void sync(unsigned client) {
    if (client == kFile) {
      const std::string error = _file->sync();
      return require(error.empty(), "a session of the file fails: " + error);
    }
    HostedBrowser& hosted = _browsers[client];
    hosted.sync();
    noteKills(client);
    const std::string state = hosted.browser.last("state");
    require(state.find("\"problem\"") == std::string::npos, "a session of a browser fails: " + state);
    _unsynced[client].clear();
  }

  void noteKills(unsigned client) {
    if (client == kFile ||
        std::exchange(_kills[client], _browsers[client].kills()) == _browsers[client].kills())
      return;
    forgetUnsynced(client);
  }

  // What the browser may have lost before anybody was told.
  void forgetUnsynced(unsigned client) {
    _gone.insert(_unsynced[client].begin(), _unsynced[client].end());
    _unsynced[client].clear();
  }

  std::string newTitle() {
    _given.push_back("t" + std::to_string(_given.size() + 1));
    return _given.back();
  }

  bool isAnchor(const std::string& title) const {
    return std::find(_anchors.begin(), _anchors.end(), title) != _anchors.end();
  }

  void give(unsigned client, const std::string& title) { _unsynced[client].insert(title); }
  void take(const std::string& title) { _gone.insert(title); }

  void moveBeforeNextChange(HostedBrowser& hosted, unsigned client, Occurrence step) {
    step.event = nest;
    hosted.beforeNextChange = [this, &hosted, client, step] { editBrowser(hosted, client, step); };
  }

  // The file puts one of two folders into the other one, and before the browser is told so, the user does it
  // the other way round.
  void crossFolders(HostedBrowser& hosted, unsigned client, const Occurrence& step) {
    ScriptedBrowser& browser = hosted.browser;
    std::vector<std::string> inFile;
    for (int i = 0; i < 2; ++i)
      inFile.push_back(_file->add(kit::newNode(true, "", newTitle(), ""), step.index));
    const std::vector<std::string> titles(_given.end() - 2, _given.end());
    sync(kFile);
    sync(client);
    _file->kit::ClientTree::move(inFile[0], inFile[1], 0);
    sync(kFile);
    hosted.beforeNextChange = [&browser, titles] {
      std::map<std::string, std::string> ids;  // by title
      for (const std::string& id : browser.entries()) ids[browser.nodes().at(id).title] = id;
      if (ids.contains(titles[0]) && ids.contains(titles[1])) browser.move(ids[titles[1]], ids[titles[0]], 0);
    };
    sync(client);
  }

  void fillMobileRoot(HostedBrowser& hosted, unsigned client) {
    ScriptedBrowser& browser = hosted.browser;
    if (!browser.isRunning()) return;
    std::string root = browser.root(RootKind::mobile);
    if (root.empty()) root = browser.makeMobileRoot();
    const std::string title = newTitle();
    browser.add(root, NodeKind::bookmark, title, "http://h-" + title);
    give(client, title);
  }

  void editBrowser(HostedBrowser& hosted, unsigned client, const Occurrence& step) {
    ScriptedBrowser& browser = hosted.browser;
    if (!browser.isRunning()) return;
    const std::string folder = chosen(browser.folders(), step.folder);
    if (step.event == addBookmark || step.event == addFolder) {
      const std::string title = newTitle();
      const bool isFolder = step.event == addFolder;
      browser.add(folder, isFolder ? NodeKind::folder : NodeKind::bookmark, title, "http://h-" + title,
                  step.index);
      return give(client, title);
    }
    std::vector<std::string> entries = browser.entries();
    std::erase_if(entries, [&](const std::string& id) {
      const std::string& title = browser.nodes().at(id).title;
      const bool isNoFolder = browser.nodes().at(id).kind != NodeKind::folder;
      return isStandIn(title) || isAnchor(title) || (step.event == nest && isNoFolder);
    });
    if (entries.empty()) return;
    const std::string entry = chosen(entries, step.entry);
    const ScriptedBrowser::Node node = browser.nodes().at(entry);
    if (step.event == rename) {
      take(node.title);
      browser.rename(entry, newTitle());
      take(_given.back());
    } else if (step.event == readdress && node.kind == NodeKind::bookmark) {
      browser.readdress(entry, "http://h-" + node.title + "/" + std::to_string(++_addresses));
    } else if (step.event == move || step.event == nest) {
      browser.move(entry, folder, step.index);
    } else if (step.event == erase) {
      for (const std::string& each : browser.subtree(entry)) {
        const std::string& title = browser.nodes().at(each).title;
        if (isAnchor(title) || isStandIn(title)) return;
      }
      for (const std::string& each : browser.subtree(entry)) take(browser.nodes().at(each).title);
      browser.remove(entry);
    }
  }

  void editFile(const Occurrence& step) {
    const std::string folder = chosen(_file->visibleFolders(), step.folder);
    if (step.event == addBookmark || step.event == addFolder) {
      const std::string title = newTitle();
      _file->add(kit::newNode(step.event == addFolder, folder, title, "HTTP://H-" + title), step.index);
      return;
    }
    std::vector<std::string> entries = _file->visibleNodes();
    const bool moves = step.event == move || step.event == nest;
    std::erase_if(entries, [&](const std::string& id) {
      const ScriptedClient::Node& node = _file->nodes.at(id);
      const bool isMovedRoot = moves && node.name == "Other Bookmarks";
      return (isFixed(id) && !isMovedRoot) || (step.event == nest && !node.folder);
    });
    if (entries.empty()) return;
    const std::string entry = chosen(entries, step.entry);
    const ScriptedClient::Node node = _file->nodes.at(entry);
    if (isTop(node)) {
      // To a browser that is given it when it lies elsewhere already, it is no root.
      if (!_browsers[0].browser.isRunning() || !_browsers[1].browser.isRunning()) return;
      for (const unsigned client : {kFile, 0U, 1U}) sync(client);
      if (!_file->nodes.contains(entry)) return;
    }
    if (step.event == rename) {
      take(node.name.toString());
      _file->rename(entry, newTitle());
      take(_given.back());
    } else if (step.event == readdress && !node.folder) {
      _file->readdress(entry, "http://H-" + node.name.toString() + "/" + std::to_string(++_addresses));
    } else if (moves) {
      _file->kit::ClientTree::move(entry, folder, step.index);
    } else if (step.event == erase) {
      const std::vector<std::string> below = _file->subtree(entry);
      if (std::any_of(below.begin(), below.end(), [&](const std::string& id) { return isFixed(id); })) return;
      for (const std::string& each : below) take(_file->nodes.at(each).name.toString());
      _file->remove(entry);
    }
  }

  // The folders that browsers show by their own.
  static bool isTop(const ScriptedClient::Node& node) {
    return node.isSpecial() || node.name == "Other Bookmarks" || node.name == "Mobile Bookmarks";
  }

  // Those, and the anchors.
  bool isFixed(const std::string& id) const {
    const ScriptedClient::Node& node = _file->nodes.at(id);
    return isTop(node) || isAnchor(node.name.toString());
  }

  // --- What there is.

  static std::string textOf(const std::string& title, NodeKind kind, const std::string& url,
                            const std::vector<std::string>& children) {
    if (kind != NodeKind::folder) return title + "@" + browsers::likenessOfAddress(url);
    std::string text = title + "(";
    for (const std::string& each : children) text += each + " ";
    return text + ")";
  }

  static std::string textOf(const ScriptedBrowser& browser, const std::string& id) {
    const ScriptedBrowser::Node& node = browser.nodes().at(id);
    return textOf(node.title, node.kind, node.url, textsIn(browser, id));
  }

  static std::vector<std::string> textsIn(const ScriptedBrowser& browser, const std::string& folder) {
    std::vector<std::string> texts;
    for (const std::string& each : browser.childrenOf(folder)) {
      if (!isStandIn(browser.nodes().at(each).title)) texts.push_back(textOf(browser, each));
    }
    return texts;
  }

  // Whether a folder stands for one that the browser does not have, or that lay elsewhere when the browser
  // was given it.
  static bool isStandIn(const std::string& title) {
    return title == kStandIn || title == browsers::titleOfRoot(RootKind::mobile) ||
           title == browsers::titleOfRoot(RootKind::other);
  }

  static Tops topsOf(const ScriptedBrowser& browser) {
    Tops tops;
    for (const RootKind kind : browsers::kRootKinds) {
      const std::string root = browser.root(kind);
      if (!root.empty()) tops[browsers::titleOfRoot(kind)] = textsIn(browser, root);
    }
    for (const std::string& each : browser.entries()) {
      const std::string& title = browser.nodes().at(each).title;
      if (!isStandIn(title)) continue;
      std::vector<std::string>& top = tops[title == kStandIn ? "BookmarksMenu" : title];
      const bool mayShare = title == browsers::titleOfRoot(RootKind::other);
      require(top.empty() || mayShare, title + " is there twice");
      for (std::string& text : textsIn(browser, each)) top.push_back(std::move(text));
    }
    return tops;
  }

  std::vector<std::string> textsInFile(const std::string& folder) const {
    std::vector<std::string> texts;
    for (const std::string& each : _file->childrenOf(folder)) {
      const ScriptedClient::Node& node = _file->nodes.at(each);
      if (isTop(node)) continue;
      texts.push_back(textOf(node.name.toString(), node.folder ? NodeKind::folder : NodeKind::bookmark,
                             node.url.toString(), textsInFile(each)));
    }
    return texts;
  }

  // What lies in the root itself is under the empty name.
  Tops topsOfFile() const {
    Tops tops;
    for (const auto& [id, node] : _file->nodes) {
      if (!isTop(node)) continue;
      const bool isNew = tops.emplace(node.name.toString(), textsInFile(id)).second;
      require(isNew, node.name.toString() + " is there twice\n" + _file->text());
    }
    tops[""] = textsInFile({});
    return tops;
  }

  static bool isWithin(const std::vector<std::string>& part, const std::vector<std::string>& whole) {
    auto at = whole.begin();
    for (const std::string& each : part) {
      at = std::find(at, whole.end(), each);
      if (at == whole.end()) return false;
      ++at;
    }
    return true;
  }

  static std::string described(const Tops& tops) {
    std::string text;
    for (const auto& [name, children] : tops) text += textOf(name, NodeKind::folder, {}, children) + " ";
    return text;
  }

  static void requireLike(Tops file, Tops browser) {
    const std::string both = "the file and a browser differ\n" + described(file) + "\n" + described(browser);
    for (const char* const name : {"BookmarksBar", "BookmarksMenu", "Mobile Bookmarks"})
      require(file[name] == browser[name], both);
    const std::vector<std::string>& other = browser["Other Bookmarks"];
    require(isWithin(file["Other Bookmarks"], other) && isWithin(file[""], other), both);
    require(other.size() == file["Other Bookmarks"].size() + file[""].size(), both);
  }

  FakePlatform _platform;
  EngineHome _home{_platform};
  HostedBrowser _browsers[2] = {HostedBrowser(ScriptedBrowser::Kind::chromium),
                                HostedBrowser(ScriptedBrowser::Kind::firefox)};
  std::unique_ptr<ScriptedClient> _file;
  std::map<unsigned, ScriptedBrowser> _backups;
  std::vector<std::string> _given;
  std::vector<std::string> _anchors;
  std::set<std::string> _gone;                          // titles that may be missing at the end
  std::map<unsigned, std::set<std::string>> _unsynced;  // titles that only this browser knows
  std::map<unsigned, std::size_t> _kills;
  int _addresses = 0;
};

void carryOutAndCheck(const std::vector<Occurrence>& steps) {
  RandomBrowsers random;
  for (const Occurrence& step : steps) random.carryOut(step);
  random.settle();
  random.requireConverged();
  random.requireNothingLost();
}

}  // namespace

void browsersConverge() { carryOutAndCheck(*histories(kOrdinary)); }

void restoredBrowsersConverge() {
  auto weights = kOrdinary;
  weights.insert(weights.end(), {{2, renewIds}, {2, backUp}, {3, restore}, {2, takeTurns}, {3, quit}});
  carryOutAndCheck(*histories(weights));
}

}  // namespace corvane
