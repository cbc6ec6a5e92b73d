#include <algorithm>
#include <cstddef>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "tools/loomerctl/browsers/FirefoxRoots.h"
#include "tools/loomerctl/browsers/PlacesDatabase.h"

namespace corvane::loomerctl {

namespace {

enum PlacesType : std::int64_t { placesBookmark = 1, placesFolder = 2, placesSeparator = 3 };

// The rows that something is noted with, or with whose places.
using RowsByNumber = std::unordered_map<std::int64_t, std::vector<std::size_t>>;

class PlacesTree {
 public:
  explicit PlacesTree(PlacesContents contents) : _contents(std::move(contents)), _rows(_contents.rows) {
    std::sort(_rows.begin(), _rows.end(), [](const PlacesRow& a, const PlacesRow& b) {
      return std::tie(a.parent, a.position, a.id) < std::tie(b.parent, b.position, b.id);
    });
    for (std::size_t i = 0; i < _rows.size(); ++i) {
      _byId.emplace(_rows[i].id, i);
      ++_children.try_emplace(_rows[i].parent, Children{i, i}).first->second.end;
    }
    _node.resize(_rows.size());
    _passed.resize(_rows.size());
  }

  BrowserBookmarks read() {
    if (const auto top = rowCalled(kFirefoxTop)) {
      pass(*top);
      open(*top, ImportedNode::kRoot);
      walk();
    }
    takeStrays();
    leaveOutTags();
    leaveOutNotes();
    return std::move(_bookmarks);
  }

 private:
  // Rows with the same parent, in their order.
  struct Children {
    std::size_t begin;
    std::size_t end;
  };
  // The rest of the contents of a folder that is being walked.
  struct OpenFolder {
    Children rest;
    std::uint32_t node;
  };

  std::optional<std::size_t> rowCalled(const FirefoxRoot& root) const {
    for (std::size_t i = 0; i < _rows.size(); ++i) {
      if (_rows[i].guid == root.guid && _rows[i].type == placesFolder) return i;
    }
    return std::nullopt;
  }

  static const FirefoxRoot* rootOf(const PlacesRow& row) {
    for (const FirefoxRoot& each : kFirefoxRoots) {
      if (row.guid == each.guid) return &each;
    }
    return nullptr;
  }

  Children childrenOf(const PlacesRow& row) const {
    const auto found = _children.find(row.id);
    return found == _children.end() ? Children{0, 0} : found->second;
  }

  // Whether this is the first time.
  bool pass(std::size_t row) {
    const bool isFirst = !_passed[row];
    _passed[row] = true;
    return isFirst;
  }

  void open(std::size_t row, std::uint32_t node) { _open.push_back({childrenOf(_rows[row]), node}); }

  void walk() {
    while (!_open.empty()) {
      OpenFolder& folder = _open.back();
      if (folder.rest.begin == folder.rest.end) {
        _open.pop_back();
        continue;
      }
      const std::size_t row = folder.rest.begin++;
      if (pass(row)) take(row, folder.node);
    }
  }

  void take(std::size_t at, std::uint32_t parent) {
    const PlacesRow& row = _rows[at];
    const FirefoxRoot* const root = parent == ImportedNode::kRoot ? rootOf(row) : nullptr;
    if (root) return takeRoot(at, *root);
    if (row.type == placesSeparator) return _bookmarks.leftOut.add(Extra::separator, parent);
    const bool isFolder = row.type == placesFolder;
    if (!isFolder && (row.type != placesBookmark || row.url.empty())) {
      return _bookmarks.leftOut.add(Extra::entry, parent, "moz_bookmarks " + std::to_string(row.id));
    }
    _node[at] = add(isFolder, row.title, parent);
    if (!isFolder) _bookmarks.nodes.back().url = row.url;
    if (row.dated) _bookmarks.leftOut.count(Extra::date);
    if (isFolder) open(at, *_node[at]);
  }

  void takeRoot(std::size_t at, const FirefoxRoot& root) {
    const Children children = childrenOf(_rows[at]);
    if (!root.title) return passTags(children);
    if (children.begin == children.end) return;
    const std::uint32_t node = add(true, root.title, ImportedNode::kRoot);
    _bookmarks.nodes.back().toolbar = root.guid == kFirefoxToolbar.guid;
    if (root.guid == kFirefoxUnfiled.guid) _unfiled = node;
    open(at, node);
  }

  std::uint32_t add(bool isFolder, std::string title, std::uint32_t parent) {
    ImportedNode& node = _bookmarks.nodes.emplace_back();
    node.folder = isFolder;
    node.title = std::move(title);
    node.parent = parent;
    return static_cast<std::uint32_t>(_bookmarks.nodes.size() - 1);
  }

  // Tags are no bookmarks; they wait until all bookmarks are known.
  void passTags(const Children& tags) {
    for (std::size_t tag = tags.begin; tag < tags.end; ++tag) {
      pass(tag);
      const Children tagged = childrenOf(_rows[tag]);
      for (std::size_t i = tagged.begin; i < tagged.end; ++i) {
        if (pass(i)) _tagged.emplace_back(tag, i);
      }
    }
  }

  // What no folder leads to, each with all that lies in it.
  void takeStrays() {
    for (std::size_t i = 0; i < _rows.size(); ++i) {
      if (_passed[i]) continue;
      if (!_unfiled) _unfiled = add(true, kOtherBookmarks, ImportedNode::kRoot);
      const std::size_t stray = topOf(i);
      pass(stray);
      ++_bookmarks.strays;
      take(stray, *_unfiled);
      walk();
    }
  }

  // The folder furthest up from the row that nothing leads to either.
  std::size_t topOf(std::size_t row) const {
    std::unordered_set<std::size_t> climbed;
    while (climbed.insert(row).second) {
      const auto parent = _byId.find(_rows[row].parent);
      if (parent == _byId.end() || _passed[parent->second] || _rows[parent->second].type != placesFolder)
        break;
      row = parent->second;
    }
    return row;
  }

  RowsByNumber rowsByPlace() const {
    RowsByNumber rows;
    for (std::size_t i = 0; i < _rows.size(); ++i) {
      if (_node[i] && _rows[i].place != 0) rows[_rows[i].place].push_back(i);
    }
    return rows;
  }

  void leaveOutTags() {
    const RowsByNumber byPlace = rowsByPlace();
    for (const auto& [tag, row] : _tagged) {
      leaveOutOfPlace(byPlace, _rows[row].place, Extra::tag, _rows[tag].title);
    }
    for (const PlacesNote& each : _contents.keywords) {
      leaveOutOfPlace(byPlace, each.of, Extra::keyword, each.name);
      if (!each.text.empty()) leaveOutOfPlace(byPlace, each.of, Extra::value, each.text);
    }
  }

  // Said of every bookmark with the address.
  void leaveOutOfPlace(const RowsByNumber& byPlace, std::int64_t place, Extra kind, const std::string& text) {
    const auto rows = byPlace.find(place);
    if (rows == byPlace.end()) return _bookmarks.leftOut.add(kind, ImportedNode::kRoot, text);
    for (const std::size_t row : rows->second) _bookmarks.leftOut.add(kind, *_node[row], text);
  }

  void leaveOutNotes() {
    for (const PlacesNote& each : _contents.annotations) {
      const auto row = _byId.find(each.of);
      if (row == _byId.end()) continue;
      const bool describes = each.name == kFirefoxDescription;
      _bookmarks.leftOut.add(describes ? Extra::description : Extra::value,
                             _node[row->second].value_or(ImportedNode::kRoot),
                             describes ? each.text : each.name);
    }
  }

  PlacesContents _contents;
  std::vector<PlacesRow>& _rows;  // by parent and position
  std::unordered_map<std::int64_t, std::size_t> _byId;
  std::unordered_map<std::int64_t, Children> _children;  // by parent
  std::vector<std::optional<std::uint32_t>> _node;       // of each row that became one
  std::vector<bool> _passed;                             // rows that have been come by
  std::vector<OpenFolder> _open;
  std::vector<std::pair<std::size_t, std::size_t>> _tagged;  // a tag's row, and that of what it is given to
  std::optional<std::uint32_t> _unfiled;
  BrowserBookmarks _bookmarks;
};

}  // namespace

BrowserBookmarks treeOfPlaces(PlacesContents contents) { return PlacesTree(std::move(contents)).read(); }

}  // namespace corvane::loomerctl
