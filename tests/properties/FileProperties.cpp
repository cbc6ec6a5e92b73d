#include "tests/properties/FileProperties.h"

#include <rapidcheck.h>

#include <algorithm>
#include <map>
#include <set>
#include <vector>

#include "tests/kit/PropertyCheck.h"
#include "tests/kit/Steps.h"
#include "tests/properties/FileSimulation.h"

namespace corvane {

namespace {

using kit::require;
using kit::Step;
using kit::StepKind;

// A simulation whose browsers edit at random, and what must come of it.
class RandomFiles {
 public:
  explicit RandomFiles(std::size_t clients) : _simulation(clients) {
    // Something that nobody deletes keeps the guard against emptied files out of these histories.
    edit({.kind = StepKind::addBookmark});
    _anchor = "t1";
  }

  FileSimulation& simulation() { return _simulation; }

  void carryOut(const Step& step) {
    const std::size_t client = step.client % _simulation.size();
    switch (step.kind) {
      case StepKind::sync:
        return _simulation.sync(client);
      case StepKind::syncKilled:
        return _simulation.syncKilled(client, static_cast<int>(step.index) + 1);
      case StepKind::syncWhile:
        return _simulation.syncWhile(client, [&] {
          edit({step.folder % 2 == 0 ? StepKind::addBookmark : StepKind::rename, step.client, step.entry,
                step.folder, step.index});
        });
      default:
        return edit(step);
    }
  }

  void edit(const Step& step) {
    const std::size_t client = step.client % _simulation.size();
    BrowserFile file = _simulation.file(client);
    const std::vector<std::string> all = file.visibleNodes();
    const std::string folder = kit::chosen(file.visibleFolders(), step.folder);
    if (step.kind <= StepKind::addHidden) {
      const std::string title = newTitle();
      const std::string uid = newUid(client);
      Node node =
          kit::newNode(step.kind == StepKind::addFolder, folder, title, "http://example.com/" + title);
      node.hidden = step.kind == StepKind::addHidden;
      file.addWithNote(uid, node, step.index);
      if (node.hidden) _hidden.insert(title);
      // Who deletes a folder elsewhere cannot know what is hidden in it: that goes with the folder.
      if (node.hidden && folder != BrowserFile::kRoot) _titles.erase(uid);
    } else if (!all.empty()) {
      change(file, step, kit::chosen(all, step.entry), folder);
    }
    _simulation.write(client, file);
  }

  // The properties at rest: every title that nobody deleted is there once.
  void requireNothingLost() {
    std::map<std::string, int> counts;
    const BrowserFile file = _simulation.file(0);
    for (const std::string& uid : file.visibleNodes()) ++counts[titleOf(file, uid)];
    for (const auto& [title, count] : counts) require(count == 1, title + " is there more than once");
    for (const std::string& title : _given) {
      if (_gone.contains(title) || _hidden.contains(title)) continue;
      require(counts.contains(title), title + " vanished though nobody deleted it");
    }
  }

  // What the browser alone knows stays with its entry, in its file.
  void requireNotesKept() {
    for (std::size_t client = 0; client < _simulation.size(); ++client) {
      for (const std::string& note : _simulation.file(client).notes()) {
        const std::string uid = note.substr(0, note.find(':'));
        require(note == uid + ": note of " + uid, "a note changed hands: " + note);
        require(uid.starts_with("c" + std::to_string(client) + "-"), "a note went to another file: " + note);
      }
      for (const auto& [uid, title] : _titles) {
        if (uid.starts_with("c" + std::to_string(client) + "-")) requireNoteOf(client, uid);
      }
    }
  }

 private:
  using Node = BrowserFile::Node;

  static std::string titleOf(const BrowserFile& file, const std::string& uid) {
    return file.nodes.at(uid).name.toString();
  }

  void change(BrowserFile& file, const Step& step, const std::string& entry, const std::string& folder) {
    const bool isBookmark = !file.nodes.at(entry).folder;
    if (step.kind == StepKind::rename && titleOf(file, entry) != _anchor) {
      // What is called otherwise now was not deleted; nor is what another client still calls by this name.
      _gone.insert(titleOf(file, entry));
      file.rename(entry, newTitle());
      _gone.insert(lastTitle());
    }
    if (step.kind == StepKind::readdress && isBookmark)
      file.readdress(entry, "http://example.com/" + newTitle(false));
    if (step.kind == StepKind::toggle && !isBookmark) file.toggle(entry);
    const std::vector<std::string> below = file.subtree(entry);
    const auto isAnchor = [&](const std::string& uid) { return titleOf(file, uid) == _anchor; };
    if (std::any_of(below.begin(), below.end(), isAnchor)) return;
    if (step.kind == StepKind::move) file.move(entry, folder, step.index);
    if (step.kind == StepKind::erase) {
      for (const std::string& uid : below) {
        _gone.insert(titleOf(file, uid));
        _titles.erase(uid);
      }
      file.remove(entry);
    }
  }

  void requireNoteOf(std::size_t client, const std::string& uid) {
    const auto notes = _simulation.file(client).notes();
    const std::string& title = _titles.at(uid);
    // An entry that another client deleted is gone with its note.
    if (_gone.contains(title)) return;
    require(std::find(notes.begin(), notes.end(), uid + ": note of " + uid) != notes.end(),
            "the note of " + uid + " is gone");
  }

  std::string newTitle(bool given = true) {
    const std::string title = "t" + std::to_string(++_serial);
    if (given) _given.push_back(title);
    return title;
  }
  std::string lastTitle() const { return "t" + std::to_string(_serial); }
  std::string newUid(std::size_t client) {
    const std::string uid = "c" + std::to_string(client) + "-" + std::to_string(_serial);
    _titles[uid] = lastTitle();
    return uid;
  }

  FileSimulation _simulation;
  unsigned _serial = 0;
  std::string _anchor;
  std::vector<std::string> _given;
  std::set<std::string> _gone;                 // titles that may be missing at the end
  std::set<std::string> _hidden;               // titles that do not sync
  std::map<std::string, std::string> _titles;  // the first title of what a browser added, by uid
};

using enum StepKind;
const kit::Weights kFileEdits = {{2, addBookmark}, {1, addFolder}, {1, addHidden}, {1, rename},
                                 {1, readdress},   {1, toggle},    {3, move},      {1, erase}};

kit::Weights editsAndSessions() {
  kit::Weights weights = kFileEdits;
  weights.insert(weights.end(), {{4, sync}, {1, syncWhile}, {1, syncKilled}});
  return weights;
}

// One session of every client, in an order that is drawn.
void roundInAnyOrder(FileSimulation& simulation) {
  std::vector<std::size_t> order(simulation.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  for (std::size_t i = 0; i + 1 < order.size(); ++i) {
    std::swap(order[i], order[*rc::gen::inRange(i, order.size())]);
  }
  for (const std::size_t client : order) simulation.sync(client);
}

}  // namespace

void filesConverge() {
  RandomFiles random(*rc::gen::inRange<std::size_t>(2, 5));
  for (const Step& step : *kit::stepsOf(editsAndSessions())) random.carryOut(step);
  roundInAnyOrder(random.simulation());
  roundInAnyOrder(random.simulation());
  random.simulation().requireConverged();
  random.simulation().requireSound();
  random.requireNothingLost();
  random.requireNotesKept();
}

void agreementsChangeNothing() {
  const std::size_t clients = *rc::gen::inRange<std::size_t>(1, 4);
  kit::Weights weights = kFileEdits;
  weights.insert(weights.end(), {{4, rename}, {2, readdress}, {2, toggle}, {9, sync}});
  const std::vector<Step> steps = *kit::stepsOf(weights);
  bool hadAgreement = false;
  // Of each step, what is stored and the files behind it.
  const auto carriedOut = [&](bool overAgreements) {
    RandomFiles random(clients);
    std::vector<std::string> states;
    for (const Step& step : steps) {
      if (!overAgreements) random.simulation().forgetAgreements();
      hadAgreement |= step.kind == StepKind::sync && random.simulation().agreements() > 0;
      random.carryOut(step);
      std::string& state = states.emplace_back(random.simulation().storeText());
      for (std::size_t client = 0; client < clients; ++client) state += random.simulation().bytes(client);
    }
    return states;
  };
  const std::vector<std::string> merged = carriedOut(true);
  RC_CLASSIFY(hadAgreement);
  const std::vector<std::string> wholly = carriedOut(false);
  for (std::size_t i = 0; i < steps.size(); ++i)
    require(merged[i] == wholly[i], "after step " + std::to_string(i) + "\n" + merged[i] + "\n" + wholly[i]);
}

void undoRestoresEveryFile() {
  RandomFiles random(*rc::gen::inRange<std::size_t>(2, 4));
  FileSimulation& simulation = random.simulation();
  for (const Step& step : *kit::stepsOf(editsAndSessions())) random.carryOut(step);
  simulation.round();
  simulation.round();
  simulation.requireConverged();
  const std::string before = simulation.file(0).text();
  const std::int64_t revision = simulation.revision();
  for (Step step : *kit::stepsOf(kFileEdits)) {
    step.client = 1;
    random.carryOut(step);
  }
  simulation.sync(1);
  if (simulation.revision() == revision) return;
  simulation.round();
  require(simulation.undoLast(), "there is no session to undo");
  simulation.round();
  simulation.requireConverged();
  simulation.requireSound();
  const std::string after = simulation.file(0).text();
  require(after == before, "undoing does not restore the tree\n" + before + "\n" + after);
}

}  // namespace corvane
