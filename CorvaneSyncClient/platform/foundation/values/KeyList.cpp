#include "CorvaneSyncClient/platform/foundation/values/KeyList.h"

#include <algorithm>

namespace corvane {

namespace {

constexpr std::size_t kMostLists = 4096;
std::size_t listCount = 0;

}  // namespace

// Never destroyed: dictionaries may be global, too.
const KeyList& KeyList::none() {
  static const KeyList* const list = new KeyList;
  return *list;
}

KeyList::KeyList(const KeyList& shorter, const String& key) : _size(shorter._size + 1) {
  std::copy(shorter.begin(), shorter.end(), _keys.begin());
  _keys[shorter._size] = interned(key);
}

std::size_t KeyList::find(const String& key) const {
  if (!key) return kNowhere;
  const std::size_t at = findInterned(key);
  return at != kNowhere ? at : find(key.view());
}

std::size_t KeyList::find(std::string_view key) const {
  for (std::size_t i = 0; i < _size; ++i) {
    if (_keys[i].view() == key) return i;
  }
  return kNowhere;
}

std::size_t KeyList::findInterned(const String& key) const {
  for (std::size_t i = 0; i < _size; ++i) {
    if (_keys[i].isSameInstance(key)) return i;
  }
  return kNowhere;
}

const KeyList* KeyList::with(const String& key) const {
  if (_latest && _latest->_keys[_size] == key) return _latest;
  const auto known = _longer.find(key);
  if (known != _longer.end()) return _latest = known->second.get();
  if (_size == kMostKeys || listCount == kMostLists) return nullptr;
  std::unique_ptr<const KeyList> longer(new KeyList(*this, key));
  _latest = longer.get();
  _longer.emplace(_latest->_keys[_size], std::move(longer));
  ++listCount;
  return _latest;
}

const KeyList* KeyList::without(std::size_t place) const {
  const KeyList* list = &none();
  for (std::size_t i = 0; i < _size && list; ++i) {
    if (i != place) list = list->with(_keys[i]);
  }
  return list;
}

}  // namespace corvane
