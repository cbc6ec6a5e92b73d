#include "browsers/host/SiblingList.h"

#include <cstdint>
#include <unordered_map>
#include <utility>

namespace corvane::browsers {

// A treap (Seidel and Aragon, "Randomized search trees", 1996) over places in the list: each item knows how
// many its subtree has.
class SiblingList::Index {
 public:
  explicit Index(const std::vector<std::string>& ids) {
    for (const std::string& each : ids) insert(_items.size(), each);
  }

  void insert(std::size_t index, const std::string& id) {
    const auto [listed, isNew] = _items.try_emplace(id);
    Item& item = listed->second;
    item.id = &listed->first;
    item.priority = nextPriority();
    Item** place = &_root;
    while (*place) {
      item.parent = *place;
      ++item.parent->size;
      const std::size_t before = sizeOf(item.parent->left);
      const bool goesLeft = index <= before;
      if (!goesLeft) index -= before + 1;
      place = goesLeft ? &item.parent->left : &item.parent->right;
    }
    *place = &item;
    while (item.parent && item.parent->priority < item.priority) rotateUp(item);
  }

  void remove(const std::string& id) {
    const auto listed = _items.find(id);
    if (listed == _items.end()) return;
    Item& item = listed->second;
    while (item.left || item.right) {
      const bool leftRises = !item.right || (item.left && item.left->priority > item.right->priority);
      rotateUp(leftRises ? *item.left : *item.right);
    }
    linkTo(item) = nullptr;
    for (Item* above = item.parent; above; above = above->parent) --above->size;
    _items.erase(listed);
  }

  std::size_t indexOf(const std::string& id) const {
    const Item* item = &_items.at(id);
    std::size_t index = sizeOf(item->left);
    for (; item->parent; item = item->parent) {
      if (item->parent->right == item) index += sizeOf(item->parent->left) + 1;
    }
    return index;
  }

  std::vector<std::string> ids() const {
    std::vector<std::string> ids;
    ids.reserve(_items.size());
    std::vector<const Item*> open;
    for (const Item* item = _root; item || !open.empty(); item = item->right) {
      for (; item; item = item->left) open.push_back(item);
      item = open.back();
      open.pop_back();
      ids.push_back(*item->id);
    }
    return ids;
  }

 private:
  struct Item {
    const std::string* id = nullptr;
    Item* parent = nullptr;
    Item* left = nullptr;
    Item* right = nullptr;
    std::size_t size = 1;  // of the subtree
    std::uint32_t priority = 0;
  };

  static std::size_t sizeOf(const Item* subtree) { return subtree ? subtree->size : 0; }

  Item*& linkTo(Item& item) {
    if (!item.parent) return _root;
    return item.parent->left == &item ? item.parent->left : item.parent->right;
  }

  void rotateUp(Item& item) {
    Item& parent = *item.parent;
    const bool wasLeft = parent.left == &item;
    linkTo(parent) = &item;
    item.parent = std::exchange(parent.parent, &item);
    Item*& inner = wasLeft ? item.right : item.left;
    (wasLeft ? parent.left : parent.right) = inner;
    if (inner) inner->parent = &parent;
    inner = &parent;
    item.size = parent.size;
    parent.size = sizeOf(parent.left) + sizeOf(parent.right) + 1;
  }

  // Marsaglia, "Xorshift RNGs", 2003.
  std::uint32_t nextPriority() {
    _random ^= _random << 13;
    _random ^= _random >> 17;
    _random ^= _random << 5;
    return _random;
  }

  std::unordered_map<std::string, Item> _items;
  Item* _root = nullptr;
  std::uint32_t _random = 0x9E3779B9U;
};

SiblingList::SiblingList() = default;
SiblingList::~SiblingList() = default;
SiblingList::SiblingList(const SiblingList& other) : _ids(other.ids()) {}
SiblingList& SiblingList::operator=(const SiblingList& other) { return *this = SiblingList(other); }
SiblingList::SiblingList(SiblingList&&) noexcept = default;
SiblingList& SiblingList::operator=(SiblingList&&) noexcept = default;

const std::vector<std::string>& SiblingList::ids() const {
  if (std::exchange(_isStale, false)) _ids = _index->ids();
  return _ids;
}

void SiblingList::append(const std::string& id) {
  ids();
  _index.reset();
  _ids.push_back(id);
}

void SiblingList::insert(std::size_t index, const std::string& id) {
  this->index().insert(index, id);
  _isStale = true;
}

void SiblingList::remove(const std::string& id) {
  index().remove(id);
  _isStale = true;
}

std::size_t SiblingList::indexOf(const std::string& id) const { return index().indexOf(id); }

SiblingList::Index& SiblingList::index() const {
  if (!_index) _index = std::make_unique<Index>(_ids);
  return *_index;
}

}  // namespace corvane::browsers
