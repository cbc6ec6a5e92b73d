#include "CorvaneSyncClient/platform/foundation/values/Value.h"

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
    delete rep;
    return true;
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

Dictionary::Dictionary(std::initializer_list<std::pair<String, Value>> entries) {
  for (const auto& [key, value] : entries) set(key, value);
}

Dictionary::Dictionary(Map entries) {
  if (entries.empty()) return;
  _rep = Ref<Rep>(new Rep);
  _rep->map = std::move(entries);
}

std::size_t Dictionary::size() const { return _rep ? _rep->map.size() : 0; }
void Dictionary::reserve(std::size_t count) { mutableRep().map.reserve(count); }

Dictionary::Map::const_iterator Dictionary::begin() const {
  return _rep ? std::as_const(_rep->map).begin() : Map::const_iterator();
}

Dictionary::Map::const_iterator Dictionary::end() const {
  return _rep ? std::as_const(_rep->map).end() : Map::const_iterator();
}

const Value* Dictionary::find(const String& key) const {
  return _rep ? std::as_const(_rep->map).find(key) : nullptr;
}

const Value* Dictionary::find(std::string_view key) const {
  return _rep ? std::as_const(_rep->map).find(key) : nullptr;
}

void Dictionary::set(String key, Value value) { mutableRep().map.set(std::move(key), std::move(value)); }

bool Dictionary::remove(const String& key) { return find(key) && mutableRep().map.remove(key); }
bool Dictionary::remove(std::string_view key) { return find(key) && mutableRep().map.remove(key); }

Dictionary::Rep& Dictionary::mutableRep() {
  if (!_rep) {
    _rep = Ref<Rep>(new Rep);
  } else if (_rep->isShared()) {
    _rep = Ref<Rep>(new Rep(*_rep));
  }
  return *_rep;
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
