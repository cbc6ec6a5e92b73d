#include "tests/properties/SmallEdits.h"

#include <algorithm>
#include <functional>
#include <set>

namespace corvane::loomer::test {
namespace {

class Enumeration {
 public:
  Enumeration(const ClientSimulation& start, std::string side) : _side(std::move(side)) {
    for (const auto& [uid, node] : start.nodes) _original.insert(uid);
    keep({start, ""});
  }

  std::vector<Outcome> run(std::size_t edits) {
    std::size_t begin = 0;
    for (std::size_t step = 0; step < edits; ++step) {
      const std::size_t end = _outcomes.size();
      for (std::size_t at = begin; at < end; ++at) editAll(at);
      begin = end;
    }
    return std::move(_outcomes);
  }

 private:
  using Change = std::function<void(ClientSimulation&)>;

  void editAll(std::size_t at) {
    const Outcome from = _outcomes[at];
    for (const std::string& folder : from.simulation.visibleFolders()) addInto(from, folder);
    edit(from, "add the common bookmark", [](ClientSimulation& client) {
      if (!client.find(kCommonTitle).empty()) return;
      client.add(kit::newNode(false, ClientSimulation::kRoot, kCommonTitle, "http://common"));
    });
    for (const auto& [uid, node] : from.simulation.nodes) editEntry(from, uid);
  }

  void addInto(const Outcome& from, const std::string& folder) {
    const std::size_t size = from.simulation.childrenOf(folder).size();
    for (const bool isFolder : {false, true}) {
      for (std::size_t index = 0; index <= size; index += std::max<std::size_t>(size, 1)) {
        const char* const kind = isFolder ? "folder" : "bookmark";
        edit(from, std::string("add a ") + kind + " to " + folder + " at " + std::to_string(index),
             [&](ClientSimulation& client) { addNew(client, folder, index, isFolder); });
      }
    }
  }

  void editEntry(const Outcome& from, const std::string& uid) {
    edit(from, "rename " + uid, [&](ClientSimulation& client) { client.rename(uid, uid.substr(1) + _side); });
    if (!from.simulation.nodes.at(uid).folder) {
      edit(from, "re-address " + uid,
           [&](ClientSimulation& client) { client.readdress(uid, "http://" + _side); });
    }
    edit(from, "delete " + uid, [&](ClientSimulation& client) { client.remove(uid); });
    edit(from, "nest " + uid, [&](ClientSimulation& client) { nest(client, uid); });
    for (const std::string& folder : from.simulation.visibleFolders()) {
      const std::size_t size = from.simulation.childrenOf(folder).size();
      for (std::size_t index = 0; index <= size; ++index) {
        edit(from, "move " + uid + " to " + folder + " at " + std::to_string(index),
             [&](ClientSimulation& client) { client.move(uid, folder, index); });
      }
    }
  }

  std::string addNew(ClientSimulation& client, const std::string& folder, std::size_t index, bool isFolder) {
    const std::string title = "new" + _side + std::to_string(client.nodes.size());
    return client.add(kit::newNode(isFolder, folder, title, "http://" + title), index);
  }

  void nest(ClientSimulation& client, const std::string& uid) {
    const std::string parent = client.nodes.at(uid).parent;
    const std::vector<std::string>& siblings = client.childrenOf(parent);
    const auto index =
        static_cast<std::size_t>(std::find(siblings.begin(), siblings.end(), uid) - siblings.begin());
    client.move(uid, addNew(client, parent, index, true), 0);
  }

  void edit(const Outcome& from, const std::string& words, const Change& change) {
    Outcome to{from.simulation, from.edits + (from.edits.empty() ? "" : "; ") + words};
    change(to.simulation);
    keep(std::move(to));
  }

  void keep(Outcome outcome) {
    if (_seen.insert(keyOf(outcome.simulation)).second) _outcomes.push_back(std::move(outcome));
  }

  // The tree, in which new entries have no names.
  std::string keyOf(const ClientSimulation& client) const {
    std::string key;
    const std::function<void(const std::string&)> write = [&](const std::string& uid) {
      const kit::ClientTree::Node& node = client.nodes.at(uid);
      if (_original.contains(uid)) {
        key += uid + "=" + node.name.toString() + "@" + node.url.toString();
      } else {
        const bool renamed = !node.name.view().starts_with("new");
        const bool readdressed = node.url == "http://" + _side;
        key += node.name == kCommonTitle ? "common" : renamed ? "renamed" : "new";
        if (readdressed) key += "@";
      }
      key += node.folder ? "(" : ",";
      for (const std::string& child : client.childrenOf(uid)) write(child);
      if (node.folder) key += ")";
    };
    for (const std::string& uid : client.childrenOf(ClientSimulation::kRoot)) write(uid);
    return key;
  }

  std::string _side;
  std::set<std::string> _original;
  std::set<std::string> _seen;
  std::vector<Outcome> _outcomes;
};

}  // namespace

std::vector<Outcome> outcomesOf(const ClientSimulation& start, std::size_t edits, const std::string& side) {
  return Enumeration(start, side).run(edits);
}

}  // namespace corvane::loomer::test
