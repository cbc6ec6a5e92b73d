#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/HashIndex.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane {

/// A map from text to `V` that lists its entries in the order in which their keys came: replacing a value
/// keeps its key's place, removing a key and adding it again moves it to the end.
///
/// Finding, setting and removing cost O(1) amortised. Small maps are searched without a hash index. Setting a
/// new key and removing one invalidate pointers to values and iterators.
template <typename V>
class OrderedMap {
 public:
  struct Entry {
    String key;  ///< absent for an entry that was removed and not yet swept away
    V value;
  };

  template <typename E>
  class Iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = E;
    using difference_type = std::ptrdiff_t;
    using pointer = E*;
    using reference = E&;

    Iterator() = default;
    Iterator(E* at, E* end) : _at(at), _end(end) { skipRemoved(); }
    E& operator*() const { return *_at; }
    E* operator->() const { return _at; }
    Iterator& operator++() {
      ++_at;
      skipRemoved();
      return *this;
    }
    Iterator operator++(int) {
      Iterator before = *this;
      ++*this;
      return before;
    }
    friend bool operator==(const Iterator& a, const Iterator& b) { return a._at == b._at; }

   private:
    void skipRemoved() {
      while (_at != _end && !_at->key) ++_at;
    }
    E* _at = nullptr;
    E* _end = nullptr;
  };
  OrderedMap() = default;
  OrderedMap(const OrderedMap& other)
      : _entries(other._entries), _index(other._index ? std::make_unique<Index>(*other._index) : nullptr) {}
  OrderedMap(OrderedMap&&) noexcept = default;
  OrderedMap& operator=(OrderedMap other) noexcept {
    _entries.swap(other._entries);
    _index.swap(other._index);
    return *this;
  }
  ~OrderedMap() = default;

  using iterator = Iterator<Entry>;
  using const_iterator = Iterator<const Entry>;

  iterator begin() { return {_entries.data(), _entries.data() + _entries.size()}; }
  iterator end() { return {_entries.data() + _entries.size(), _entries.data() + _entries.size()}; }
  const_iterator begin() const { return {_entries.data(), _entries.data() + _entries.size()}; }
  const_iterator end() const {
    return {_entries.data() + _entries.size(), _entries.data() + _entries.size()};
  }

  std::size_t size() const { return _entries.size() - (_index ? _index->removed : 0); }
  bool empty() const { return size() == 0; }
  void reserve(std::size_t count) {
    _entries.reserve(count);
    if (count > kLinearLimit) rebuildIndex(count);
  }

  /// The value under `key`, or null. An absent key is never found.
  V* find(const String& key) { return valueAt(locate(key)); }
  const V* find(const String& key) const { return const_cast<OrderedMap*>(this)->find(key); }
  V* find(std::string_view key) { return valueAt(locateText(key, nullptr)); }
  const V* find(std::string_view key) const { return const_cast<OrderedMap*>(this)->find(key); }
  V* find(const char* key) { return find(std::string_view(key)); }
  const V* find(const char* key) const { return find(std::string_view(key)); }
  bool contains(const String& key) const { return find(key) != nullptr; }

  /// Sets the value under `key`, keeping the place of a key already there. Raises PlatformException
  /// "NSInvalidArgumentException" for the absent string, which is no key.
  V& set(String key, V value) {
    if (!key)
      throw PlatformException(NSInvalidArgumentException, std::string("A key of a map must not be absent"));
    const std::size_t at = locate(key);
    if (at != kNowhere) {
      _entries[at].value = std::move(value);
      return _entries[at].value;
    }
    return append(std::move(key), std::move(value));
  }

  /// As `set`, for a map all of whose keys are interned: a small one is searched by instance.
  void setInterned(const String& key, const V& value) {
    if (_index || _entries.size() == kLinearLimit) {
      set(key, value);
      return;
    }
    for (Entry& entry : _entries) {
      if (!entry.key.isSameInstance(key)) continue;
      entry.value = value;
      return;
    }
    _entries.push_back({key, value});
  }

  /// Takes the key and its value out; answers whether it was there.
  bool remove(const String& key) { return removeAt(locate(key)); }
  bool remove(std::string_view key) { return removeAt(locateText(key, nullptr)); }
  bool remove(const char* key) { return remove(std::string_view(key)); }

  void clear() {
    _entries.clear();
    _index.reset();
  }

  /// The keys as they stand now, for walks that change the map.
  std::vector<String> keys() const {
    std::vector<String> result;
    result.reserve(size());
    for (const Entry& entry : *this) result.push_back(entry.key);
    return result;
  }

 private:
  static constexpr std::size_t kLinearLimit = 8;
  static constexpr std::size_t kNowhere = static_cast<std::size_t>(-1);

  // Where the entries of a map stand that is too large to be searched one by one.
  struct Index {
    HashIndex places;
    std::size_t removed = 0;  // entries that were removed and not yet swept away
  };

  V* valueAt(std::size_t at) { return at == kNowhere ? nullptr : &_entries[at].value; }

  std::size_t locate(const String& key) const {
    if (!key) return kNowhere;
    if (!_index) {
      for (std::size_t i = 0; i < _entries.size(); ++i) {
        if (_entries[i].key.isSameInstance(key)) return i;
      }
    }
    return locateText(key.view(), &key);
  }

  std::size_t locateText(std::string_view text, const String* hashed) const {
    if (!_index) {
      for (std::size_t i = 0; i < _entries.size(); ++i) {
        if (_entries[i].key && _entries[i].key.view() == text) return i;
      }
      return kNowhere;
    }
    const std::uint32_t place = _index->places.find(
        hashed ? hashed->hash() : hashOf(text),
        [&](std::uint32_t at) { return _entries[at].key && _entries[at].key.view() == text; });
    return place == HashIndex::kNowhere ? kNowhere : place;
  }

  V& append(String key, V value) {
    _entries.push_back({std::move(key), std::move(value)});
    if (_index) {
      enter(_entries.size() - 1);
    } else if (_entries.size() > kLinearLimit) {
      rebuildIndex(_entries.size() * 2);
    }
    return _entries.back().value;
  }

  bool removeAt(std::size_t at) {
    if (at == kNowhere) return false;
    if (!_index) {
      _entries.erase(_entries.begin() + static_cast<std::ptrdiff_t>(at));
      return true;
    }
    _entries[at].key = String();
    _entries[at].value = V();
    ++_index->removed;
    if (_index->removed > kLinearLimit && _index->removed * 2 > _entries.size()) {
      sweep();
      rebuildIndex(_entries.size() * 2);
    }
    return true;
  }

  void sweep() {
    if (!_index || _index->removed == 0) return;
    std::erase_if(_entries, [](const Entry& entry) { return !entry.key; });
    _index->removed = 0;
  }

  void rebuildIndex(std::size_t count) {
    if (!_index) _index = std::make_unique<Index>();
    _index->places.clear();
    _index->places.reserve(count);
    for (std::size_t i = 0; i < _entries.size(); ++i) {
      if (_entries[i].key) enter(i);
    }
  }

  void enter(std::size_t at) { _index->places.enter(_entries[at].key.hash(), at); }

  std::vector<Entry> _entries;
  std::unique_ptr<Index> _index;
};

}  // namespace corvane
