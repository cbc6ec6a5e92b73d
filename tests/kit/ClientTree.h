#pragma once

#include <cstddef>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "tests/kit/TreeText.h"

namespace corvane::kit {

/// The bookmarks that a client holds, as a person edits them and as changes are put among them. All clients
/// of tests are such trees, and differ in how they sync. Nodes are known by ids; the root's is empty, and it
/// is no node.
class ClientTree {
 public:
  struct Node {
    bool folder = false;
    String name = {};
    String url = {};
    std::string parent = {};
    int position = 0;  ///< as the engine is told: its number in its folder, or LoomerPositionSpecial
    bool tabGroup = false;
    bool hidden = false;  ///< kept from the engine, with everything below it
    bool isSpecial() const;
  };
  using Nodes = std::map<std::string, Node>;
  using Children = std::map<std::string, std::vector<std::string>>;

  static constexpr const char* kRoot = "";
  static constexpr std::size_t kEnd = std::numeric_limits<std::size_t>::max();

  /// `name` makes the ids of this client's nodes differ from those of others.
  explicit ClientTree(std::string name) : _name(std::move(name)) {}

  // What a person does. `index` counts all children of a folder and is cut to its size.

  /// Answers the id that it makes.
  std::string add(Node node, std::size_t index = kEnd);
  void rename(const std::string& id, const std::string& name);
  void readdress(const std::string& id, const std::string& url);
  void toggle(const std::string& id);
  /// Moving a folder into itself does nothing.
  void move(const std::string& id, const std::string& parent, std::size_t index = kEnd);
  /// With everything in it.
  void remove(const std::string& id);
  void removeAll();

  // What a client does.

  std::string newId();
  /// Adds a node under an id that is given. A node of that id there already raises std::logic_error.
  void insert(const std::string& id, Node node, std::size_t index = kEnd);
  /// Puts a new node, or a known one in its new form, among its siblings by its position, as the browser
  /// does. Raises std::logic_error when its folder is not there.
  void place(const std::string& id, Node node);
  /// Takes a node away, and leaves what is in it to changes of its own. Nothing where it is not there.
  void drop(const std::string& id);
  /// Drops the folders or the bookmarks, but for what is hidden.
  void dropAll(bool folders);
  /// Numbers the children of every folder from 0 on, hidden ones included; a special one counts and keeps its
  /// position.
  void number();

  // What there is. A fixed order wherever it does not say which.

  bool isHidden(const std::string& id) const;
  /// What a person sees: the folders, the root first of them, and all nodes.
  std::vector<std::string> visibleFolders() const;
  std::vector<std::string> visibleNodes() const;
  /// In a folder, in their order; none for a bookmark.
  const std::vector<std::string>& childrenOf(const std::string& id) const;
  /// A node and everything below it, parents first. Raises std::logic_error when one of them is listed twice,
  /// or in a folder that is not its own.
  std::vector<std::string> subtree(const std::string& id) const;
  /// The id of the only node of this name; empty when there is none.
  std::string find(const std::string& name) const;
  /// What is not hidden; nodes are called by their names.
  std::vector<TreeNode> tree() const;
  /// The same in the notation of tests.
  std::string text() const { return printTree(tree()); }

  Nodes nodes;
  Children children;   ///< of folders that have, or had, any
  bool edited = true;  ///< by a person, since somebody last said that it is not

 private:
  void put(const std::string& id, const std::string& parent, std::size_t index);
  void unlist(const std::string& id);
  void numberIn(const std::vector<std::string>& siblings);

  std::string _name;
  int _made = 0;
};

/// What a person adds to `parent`. A folder has no address, whatever `url` is.
ClientTree::Node newNode(bool folder, const std::string& parent, const std::string& name,
                         const std::string& url = {});

}  // namespace corvane::kit
