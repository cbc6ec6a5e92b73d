#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "browsers/host/BrowserNode.h"

namespace corvane::browsers {

/// A title or an address. The client holds `value`, which is what the truth says; the browser may show
/// another form of it, which never travels back.
struct Form {
  String value;           ///< absent where the truth has none
  std::string shown;      ///< in the browser
  bool isPending = true;  ///< the browser has not been given `value` yet

  /// The user has written this in the browser.
  void edit(const std::string& text) {
    value = String(text);
    shown = text;
    isPending = false;
  }
  void set(const String& other) {
    if (other == value) return;
    value = other;
    isPending = true;
  }
};

enum class Showing : std::uint8_t {
  shown,    ///< in the browser
  waiting,  ///< to be made in the browser
  refused   ///< the browser cannot hold it
};

/// When something last changed in the browser.
struct Stamp {
  std::int64_t generation = 0;  ///< of the snapshot
  double time = 0.0;            ///< in seconds since 2001
};

/// When a browser says that it added a node, in milliseconds since 1970: what it says now, and said of the
/// same node in other copies of the profile, or before it was made anew.
struct AddedTimes {
  std::int64_t now = 0;
  std::vector<std::int64_t> before;  ///< the latest few

  void set(std::int64_t time);
};

/// Something that the client holds: a record, or a separator, which the engine never hears of.
struct HeldNode {
  std::string localId;  ///< the client's own, for good
  std::string parent;   ///< the local id of its folder; empty for the truth's root
  NodeKind kind = NodeKind::bookmark;
  Form title;
  Form url;                      ///< of bookmarks
  bool opensAsTabs = false;      ///< of folders; no browser shows it
  bool isSpecial = false;        ///< the bookmarks bar or menu
  std::optional<RootKind> root;  ///< the browser's own folder that stands for it
  bool isOfAccount = false;      ///< of a root: the browser's own account keeps that folder in step
  Showing showing = Showing::waiting;
  std::string browserId;  ///< of what is shown
  /// Of the folder in which the browser showed it before it had a root for it; empty for none. It is to go.
  std::string standIn;
  std::string shownIn;          ///< the folder that it is shown in; see `HeldTree::folderToShowIn`
  std::int64_t shownIndex = 0;  ///< and its place there
  AddedTimes added;
  Stamp changed;
  std::int32_t position = 0;  ///< among its siblings, while changes are delivered
};

/// What was in the browser once, and is deleted.
struct RemovedNode {
  NodeKind kind = NodeKind::bookmark;
  std::string browserId;
  std::string title;
  std::string url;
  AddedTimes added;
  Stamp changed;
  bool isWaiting = false;  ///< to be removed from the browser
};

/// What the client of a browser holds: what the engine is given and what it changes, and how the browser
/// shows it. The root of all is the truth's and no node; its id is empty.
class HeldTree {
 public:
  using Nodes = std::unordered_map<std::string, HeldNode>;

  const Nodes& nodes() const { return _nodes; }
  /// Null for an unknown id.
  HeldNode* find(const std::string& localId);
  const HeldNode* find(const std::string& localId) const;
  /// The node that stands for the browser's own folder; null where the client holds none such.
  HeldNode* root(RootKind kind);
  const HeldNode* root(RootKind kind) const;
  const std::vector<std::string>& childrenOf(const std::string& folder) const;
  /// Parents first, siblings in their order.
  std::vector<const HeldNode*> topDown() const;

  /// Adds a node as the last of its folder.
  HeldNode& add(HeldNode node);
  /// Puts the order of a folder's children in the place of the one before.
  void setChildren(const std::string& folder, std::vector<std::string> children);
  /// Numbers all children of every folder from 0 on, as the engine is given them.
  void number();
  /// Puts a node, which `add` has not seen or has, among its siblings by its position: before the first one
  /// with a greater number, or with the same number and a title that sorts after its own.
  void place(HeldNode node);
  /// Has a folder in the truth's root be what the browser's own folder of that kind stands for, as none does.
  void makeRoot(const std::string& localId, RootKind kind);
  /// Has the node that stands for the browser's own folder of that kind be a folder like any other.
  void endRoot(RootKind kind);
  /// Takes a node away; what is in it waits for changes of its own.
  void drop(const std::string& localId);

  /// In which folder of the browser a node is to be seen: a root as "@" and its name, any other folder by its
  /// local id. What lies directly in the truth's root is shown in "@other".
  std::string folderToShowIn(const HeldNode& node) const;
  /// What is to be seen in such a folder, in its order.
  std::vector<std::string> toShowIn(const std::string& folder) const;

  std::vector<RemovedNode> removed;
  /// When the order of what a folder shows last changed.
  std::unordered_map<std::string, Stamp> ordered;

 private:
  // A folder's children are arranged when they are asked for, all at once: a session delivers them one by
  // one, and so does not walk the list for each.
  struct Children {
    std::vector<std::string> listed;
    std::vector<std::string> placed;  // to be listed, in the order of `place`; the last time counts
    bool hasLeavers = false;          // some of those listed do not lie here any more
  };

  void arrange(const std::string& folder, Children& children) const;
  void insertPlaced(std::vector<std::string>& listed, const std::vector<std::string>& placed) const;
  /// Whether the node is there, and lies in the folder.
  bool liesIn(const std::string& localId, const std::string& folder) const;

  Nodes _nodes;
  mutable std::unordered_map<std::string, Children> _children;
  std::map<RootKind, std::string> _roots;  // local ids
};

/// The title that the browser is given for what is not one of its own folders: it shows the truth's menu by
/// the menu's name.
std::string titleToShow(const HeldNode& node);
/// How `HeldTree::folderToShowIn` calls a root.
std::string folderOfRoot(RootKind kind);
/// The root that is called so; nothing for any other folder.
std::optional<RootKind> rootOfFolder(const std::string& folder);
/// What the folder of the truth that stands for a root is called by every browser, whatever its language.
const char* titleOfRoot(RootKind kind);
/// Whether that folder is special in the truth.
constexpr bool isSpecialRoot(RootKind kind) { return kind == RootKind::bar || kind == RootKind::menu; }

}  // namespace corvane::browsers
