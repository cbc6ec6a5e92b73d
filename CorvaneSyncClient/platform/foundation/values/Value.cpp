#include "CorvaneSyncClient/platform/foundation/values/Value.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>

namespace corvane {

// Dropping the last reference to a container may drop the containers inside it, and so on down. They are
// chained and destroyed one after another, so that depth never becomes stack. The link is in the container
// itself: dropping must not need memory, which may be what there is no more of.
class ContainerRelease {
 public:
  template <typename Rep>
  static void release(Rep* rep) {
    rep->nextDropped = std::exchange(_first<Rep>, rep);
    if (!_draining) drain();
  }

 private:
  static void drain() {
    _draining = true;
    while (destroyFirst<Array::Rep>() || destroyFirst<Dictionary::Rep>()) {
    }
    _draining = false;
  }

  template <typename Rep>
  static bool destroyFirst() {
    Rep* const rep = _first<Rep>;
    if (!rep) return false;
    _first<Rep> = rep->nextDropped;
    destroyContents(rep);
    return true;
  }

  static void destroyContents(Array::Rep* rep) { delete rep; }
  static void destroyContents(Dictionary::Rep* rep) {
    if (rep->isLarge()) {
      delete static_cast<Dictionary::LargeRep*>(rep);
      return;
    }
    std::destroy_n(rep->values(), rep->size);
    ::operator delete(rep);
  }

  template <typename Rep>
  static inline Rep* _first = nullptr;
  static inline bool _draining = false;
};

void Array::Rep::destroy(Rep* rep) { ContainerRelease::release(rep); }
void Dictionary::Rep::destroy(Rep* rep) { ContainerRelease::release(rep); }

Array::Array(std::initializer_list<Value> values) : Array(std::vector<Value>(values)) {}

Array::Array(std::vector<Value> values) {
  if (values.empty()) return;
  _rep = Ref<Rep>(new Rep);
  _rep->values = std::move(values);
}

void Array::append(Value value) {
  if (!_rep) {
    _rep = Ref<Rep>(new Rep);
  } else if (_rep->isShared()) {
    _rep = Ref<Rep>(new Rep(*_rep));
  }
  _rep->values.push_back(std::move(value));
}

Dictionary::Rep* Dictionary::Rep::make(std::size_t room) {
  Rep* const rep = new (::operator new(sizeof(Rep) + room * sizeof(Value))) Rep;
  rep->room = static_cast<std::uint16_t>(room);
  rep->keys = &KeyList::none();
  return rep;
}

Dictionary::Map& Dictionary::Rep::map() { return static_cast<LargeRep*>(this)->map; }

Dictionary::Dictionary(std::initializer_list<std::pair<String, Value>> entries) {
  reserve(entries.size());
  for (const auto& [key, value] : entries) set(key, value);
}

Dictionary::Dictionary(Map entries) {
  if (entries.empty()) return;
  if (entries.size() > KeyList::kMostKeys) {
    ownMap() = std::move(entries);
    return;
  }
  reserve(entries.size());
  for (auto& [key, value] : entries) set(key, std::move(value));
}

Dictionary::Dictionary(const KeyList& keys, std::span<Value> values) {
  if (values.empty()) return;
  Rep& rep = ownRep(values.size());
  Value* to = rep.values();
  for (Value& value : values) new (to++) Value(std::move(value));
  rep.size = static_cast<std::uint16_t>(values.size());
  rep.keys = &keys;
}

std::size_t Dictionary::size() const {
  if (!_rep) return 0;
  return _rep->isLarge() ? _rep->map().size() : _rep->size;
}

void Dictionary::reserve(std::size_t count) {
  if (count == 0) return;
  if (count > KeyList::kMostKeys) {
    ownMap().reserve(count);
  } else if (!_rep || !_rep->isLarge()) {
    ownRep(count);
  }
}

Dictionary::Iterator Dictionary::begin() const {
  if (!_rep) return {};
  if (_rep->isLarge()) return Iterator(std::as_const(_rep->map()).begin());
  return {_rep->keys->begin(), _rep->values()};
}

Dictionary::Iterator Dictionary::end() const {
  if (!_rep) return {};
  if (_rep->isLarge()) return Iterator(std::as_const(_rep->map()).end());
  return {_rep->keys->end(), _rep->values() + _rep->size};
}

const Value* Dictionary::find(const String& key) const {
  if (!_rep) return nullptr;
  if (_rep->isLarge()) return _rep->map().find(key);
  const std::size_t place = _rep->keys->find(key);
  return place == KeyList::kNowhere ? nullptr : _rep->values() + place;
}

const Value* Dictionary::find(std::string_view key) const {
  if (!_rep) return nullptr;
  if (_rep->isLarge()) return _rep->map().find(key);
  const std::size_t place = _rep->keys->find(key);
  return place == KeyList::kNowhere ? nullptr : _rep->values() + place;
}

void Dictionary::set(String key, Value value) {
  if (!key) throw PlatformException(NSInvalidArgumentException, "A key of a map must not be absent");
  if (_rep && _rep->isLarge()) {
    ownMap().set(std::move(key), std::move(value));
  } else {
    setAt(_rep ? _rep->keys->find(key) : KeyList::kNowhere, key, std::move(value));
  }
}

void Dictionary::setInterned(const String& key, Value value) {
  if (_rep && _rep->isLarge()) {
    ownMap().set(key, std::move(value));
  } else {
    setAt(_rep ? _rep->keys->findInterned(key) : KeyList::kNowhere, key, std::move(value));
  }
}

// Of a small dictionary.
void Dictionary::setAt(std::size_t place, const String& key, Value value) {
  if (place != KeyList::kNowhere) {
    ownRep(_rep->size).values()[place] = std::move(value);
    return;
  }
  const KeyList* const keys = (_rep ? *_rep->keys : KeyList::none()).with(key);
  if (!keys) {
    ownMap().set(key, std::move(value));
    return;
  }
  Rep& rep = ownRep(keys->size());
  new (rep.values() + rep.size) Value(std::move(value));
  ++rep.size;
  rep.keys = keys;
}

bool Dictionary::remove(const String& key) {
  if (_rep && _rep->isLarge()) return _rep->map().find(key) && ownMap().remove(key);
  return removeAt(_rep ? _rep->keys->find(key) : KeyList::kNowhere);
}

bool Dictionary::remove(std::string_view key) {
  if (_rep && _rep->isLarge()) return _rep->map().find(key) && ownMap().remove(key);
  return removeAt(_rep ? _rep->keys->find(key) : KeyList::kNowhere);
}

// Of a small dictionary.
bool Dictionary::removeAt(std::size_t place) {
  if (place == KeyList::kNowhere) return false;
  const KeyList* const keys = _rep->keys->without(place);
  if (!keys) return ownMap().remove(_rep->keys->begin()[place]);
  Rep& rep = ownRep(_rep->size);
  Value* const values = rep.values();
  std::move(values + place + 1, values + rep.size, values + place);
  --rep.size;
  std::destroy_at(values + rep.size);
  rep.keys = keys;
  return true;
}

Dictionary::Rep& Dictionary::ownRep(std::size_t room) {
  if (!_rep) _rep = Ref<Rep>(Rep::make(room));
  const bool isShared = _rep->isShared();
  if (!isShared && room <= _rep->room) return *_rep;
  const std::size_t roomToGrow = std::min<std::size_t>(2 * _rep->room, KeyList::kMostKeys);
  Ref<Rep> own(Rep::make(std::max<std::size_t>(room, isShared ? _rep->size : roomToGrow)));
  Value* const values = _rep->values();
  if (isShared) {
    std::uninitialized_copy_n(values, _rep->size, own->values());
  } else {
    std::uninitialized_move_n(values, _rep->size, own->values());
  }
  own->size = _rep->size;
  own->keys = _rep->keys;
  _rep = std::move(own);
  return *_rep;
}

Dictionary::Map& Dictionary::ownMap() {
  if (!_rep || !_rep->isLarge() || _rep->isShared()) {
    const Ref<LargeRep> own(new LargeRep);
    if (_rep && _rep->isLarge()) {
      own->map = _rep->map();
    } else {
      for (const auto& [key, value] : *this) own->map.set(key, value);
    }
    _rep = Ref<Rep>(own.get());
  }
  return _rep->map();
}

String Dictionary::string(std::string_view key) const {
  const Value* value = find(key);
  return value ? value->string() : String();
}

const Array* Dictionary::array(std::string_view key) const {
  const Value* value = find(key);
  return value ? value->as<Array>() : nullptr;
}

const Dictionary* Dictionary::dictionary(std::string_view key) const {
  const Value* value = find(key);
  return value ? value->as<Dictionary>() : nullptr;
}

std::optional<Date> Dictionary::date(std::string_view key) const {
  const Value* value = find(key);
  const Date* date = value ? value->as<Date>() : nullptr;
  return date ? std::optional(*date) : std::nullopt;
}

std::optional<bool> Dictionary::boolean(std::string_view key) const {
  const Value* value = find(key);
  return value ? value->boolean() : std::nullopt;
}

std::optional<std::int32_t> Dictionary::integer32(std::string_view key) const {
  const Value* value = find(key);
  return value ? value->integer32() : std::nullopt;
}

Value::Value(std::uint64_t value) {
  if (value <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    hold(static_cast<std::int64_t>(value));
  } else {
    hold(value);
  }
}

// `shared` takes the pointer in a payload for one to RefCounted.
static_assert(sizeof(Ref<SharedBytes>) == sizeof(void*) && sizeof(String) == sizeof(void*) &&
              sizeof(Data) == sizeof(void*) && sizeof(Array) == sizeof(void*) &&
              sizeof(Dictionary) == sizeof(void*) && sizeof(Url) == sizeof(void*));

void Value::destroyShared() {
  visit([this](const auto& payload) {
    using Type = std::decay_t<decltype(payload)>;
    shared()->retain();  // which the payload's own end gives back
    std::destroy_at(const_cast<Type*>(&payload));
  });
}

String Value::string() const {
  const String* text = as<String>();
  return text ? *text : String();
}

std::optional<bool> Value::boolean() const {
  if (const bool* value = as<bool>()) return *value;
  if (const auto* value = as<std::int64_t>()) return *value != 0;
  if (as<std::uint64_t>()) return true;
  if (const double* value = as<double>()) return *value != 0.0;
  return std::nullopt;
}

std::optional<std::int32_t> Value::integer32() const {
  const auto low32 = [](auto wide) { return static_cast<std::int32_t>(static_cast<std::uint32_t>(wide)); };
  if (const bool* value = as<bool>()) return *value ? 1 : 0;
  if (const auto* value = as<std::int64_t>()) return low32(*value);
  if (const auto* value = as<std::uint64_t>()) return low32(*value);
  if (const double* value = as<double>()) {
    const double truncated = std::trunc(*value);
    if (!(truncated >= -0x1p63 && truncated < 0x1p63)) return std::nullopt;
    return low32(static_cast<std::int64_t>(truncated));
  }
  return std::nullopt;
}

const char* Value::typeName() const {
  static constexpr const char* kNames[] = {"boolean", "integer", "integer", "real",       "date",
                                           "string",  "data",    "array",   "dictionary", "URL"};
  return kNames[static_cast<std::size_t>(_kind)];
}

}  // namespace corvane
