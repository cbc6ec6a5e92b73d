#include "tests/properties/SmallHistoryProperties.h"

#include <algorithm>
#include <optional>
#include <set>
#include <stdexcept>

#include "tests/properties/SmallEdits.h"

namespace corvane::loomer::test {
namespace {

using Children = std::map<RecordId, std::vector<RecordId>>;

Children childrenOf(const Facts& facts) {
  Children children;
  for (const auto& [id, fact] : facts) children[fact.parent].push_back(id);
  for (auto& [parent, list] : children) {
    std::sort(list.begin(), list.end(),
              [&](RecordId x, RecordId y) { return facts.at(x).index < facts.at(y).index; });
  }
  return children;
}

class Judge {
 public:
  explicit Judge(const SmallHistory& history) : _history(history), _end(childrenOf(history.end)) {}

  void run() {
    requireLives();
    requireContents();
    requireParents();
    requireCommonOnce();
    requireAgreedOrder();
    requireInsertionsTogether(_history.a);
    requireInsertionsTogether(_history.b);
  }

 private:
  static const Fact* in(const Facts& facts, RecordId id) {
    const auto found = facts.find(id);
    return found == facts.end() ? nullptr : &found->second;
  }

  static void require(bool holds, RecordId id, const std::string& what) {
    if (!holds) throw std::logic_error("record " + std::to_string(id) + " " + what);
  }

  static bool isChanged(const Fact& now, const Fact& before) {
    return now.title != before.title || now.url != before.url || now.parent != before.parent;
  }

  // Whether a record that the other side deleted is changed on this one, or lies in a folder of which that
  // holds: a changed folder comes back with what it held.
  bool comesBack(RecordId id, const Facts& side, const Facts& other) const {
    for (RecordId at = id; at != kRoot; at = side.at(at).parent) {
      const Fact* const before = in(_history.origin, at);
      if (!before || in(other, at)) return false;
      if (isChanged(side.at(at), *before)) return true;
    }
    return false;
  }

  // Nothing vanishes that no client deleted; what one side deleted goes unless the other changed it, or a
  // folder above it that went with it, or put something into it; nothing is invented.
  void requireLives() const {
    for (const auto& [id, fact] : _history.end) {
      require(in(_history.origin, id) || in(_history.a, id) || in(_history.b, id), id, "was invented");
    }
    for (const auto& [id, before] : _history.origin) {
      const Fact* const a = in(_history.a, id);
      const Fact* const b = in(_history.b, id);
      const bool lives = in(_history.end, id);
      if (a && b) require(lives, id, "vanished though nobody deleted it");
      if (!a && !b) require(!lives, id, "lives though both deleted it");
      if ((a == nullptr) == (b == nullptr)) continue;
      if (a ? comesBack(id, _history.a, _history.b) : comesBack(id, _history.b, _history.a)) {
        require(lives, id, "vanished though one side changed it, or what held it");
      } else {
        require(!lives || _end.contains(id), id, "lives though it was deleted and holds nothing");
      }
    }
    for (const Facts* const side : {&_history.a, &_history.b}) {
      for (const auto& [id, fact] : *side) {
        if (!in(_history.origin, id)) require(in(_history.end, id), id, "was added and vanished");
      }
    }
  }

  template <typename Value>
  static Value chosen(const Value& before, const Value& a, const Value& b) {
    return b == before ? a : b;
  }

  // Each attribute on its own: what one side changed arrives; where both did, the later session's stands.
  void requireContents() const {
    for (const auto& [id, end] : _history.end) {
      const Fact* const before = in(_history.origin, id);
      const Fact* const a = in(_history.a, id);
      const Fact* const b = in(_history.b, id);
      const Fact& onlySide = a ? *a : *b;
      const bool inAll = before && a && b;
      // The common bookmark may have been renamed after it was added: as two, not one, it has no before.
      if (!before && a && b) continue;
      const std::string title = inAll ? chosen(before->title, a->title, b->title) : onlySide.title;
      const std::string url = inAll ? chosen(before->url, a->url, b->url) : onlySide.url;
      require(end.title == title, id, "is called " + end.title + " and not " + title);
      require(end.url == url, id, "has the address " + end.url + " and not " + url);
      require(end.entity == onlySide.entity, id, "is of another kind");
    }
  }

  RecordId chosenParent(RecordId id) const {
    const Fact* const before = in(_history.origin, id);
    const Fact* const a = in(_history.a, id);
    const Fact* const b = in(_history.b, id);
    if (before && a && b) return chosen(before->parent, a->parent, b->parent);
    return (b ? b : a)->parent;
  }

  bool closesCycle(RecordId id) const {
    std::size_t steps = 0;
    for (RecordId at = id; at != kRoot; at = chosenParent(at)) {
      if (!_history.end.contains(at) || ++steps > _history.end.size()) return true;
    }
    return false;
  }

  void requireParents() const {
    const bool cycle = std::any_of(_history.end.begin(), _history.end.end(),
                                   [this](const auto& entry) { return closesCycle(entry.first); });
    for (const auto& [id, end] : _history.end) {
      if (!cycle) {
        require(end.parent == chosenParent(id), id, "has another parent than the one it was moved to");
        continue;
      }
      const Fact* const a = in(_history.a, id);
      const Fact* const b = in(_history.b, id);
      const Fact* const before = in(_history.origin, id);
      require((a && end.parent == a->parent) || (b && end.parent == b->parent) ||
                  (before && end.parent == before->parent),
              id, "has a parent that nobody gave it");
    }
  }

  static std::size_t countCommon(const Facts& facts) {
    return static_cast<std::size_t>(std::count_if(
        facts.begin(), facts.end(), [](const auto& entry) { return entry.second.title == kCommonTitle; }));
  }

  // Equal bookmarks that both sides added to one folder are one afterwards; nothing else adds to them.
  void requireCommonOnce() const {
    std::size_t expected = countCommon(_history.a) + countCommon(_history.b);
    for (const auto& [id, fact] : _history.a) {
      const Fact* const b = in(_history.b, id);
      if (fact.title == kCommonTitle && b && b->title == kCommonTitle) --expected;
    }
    if (countCommon(_history.end) > expected) throw std::logic_error("the common bookmark was doubled");
    std::set<std::pair<RecordId, std::string>> places;
    for (const auto& [id, fact] : _history.end) {
      if (fact.title != kCommonTitle || fact.url != "http://common") continue;
      require(places.insert({fact.parent, fact.url}).second || expected > 1, id, "was doubled in its folder");
    }
  }

  // Two siblings that both sides order alike keep that order.
  void requireAgreedOrder() const {
    for (const auto& [parent, siblings] : _end) {
      for (std::size_t i = 0; i < siblings.size(); ++i) {
        for (std::size_t j = i + 1; j < siblings.size(); ++j) {
          const bool turned = hasBefore(_history.a, siblings[j], siblings[i], parent) &&
                              hasBefore(_history.b, siblings[j], siblings[i], parent);
          require(!turned, siblings[j],
                  "and " + std::to_string(siblings[i]) + " stand as neither side had them");
        }
      }
    }
  }

  static bool hasBefore(const Facts& side, RecordId left, RecordId right, RecordId parent) {
    const Fact* const first = in(side, left);
    const Fact* const second = in(side, right);
    return first && second && first->parent == parent && second->parent == parent &&
           first->index < second->index;
  }

  // What a side added side by side stands side by side, in its order. What both sides added counts for
  // neither.
  void requireInsertionsTogether(const Facts& side) const {
    for (const auto& [parent, children] : childrenOf(side)) {
      for (std::size_t i = 1; i < children.size(); ++i) {
        if (!isAlone(children[i - 1]) || !isAlone(children[i])) continue;
        const Fact& left = _history.end.at(children[i - 1]);
        const Fact& right = _history.end.at(children[i]);
        if (left.parent != right.parent) continue;
        require(left.index + 1 == right.index, children[i], "was parted from what was inserted before it");
      }
    }
  }

  bool isAlone(RecordId id) const {
    return !in(_history.origin, id) && (!in(_history.a, id) || !in(_history.b, id));
  }

  const SmallHistory& _history;
  Children _end;
};

}  // namespace

void requireProperties(const SmallHistory& history) { Judge(history).run(); }

}  // namespace corvane::loomer::test
