#include "CorvaneSyncClient/platform/foundation/Value.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <unordered_set>

namespace corvane {

// Dropping the last reference to a container may drop the containers inside it, and so on down. They are
// queued and destroyed one after another, so that depth never becomes stack.
class ContainerRelease {
 public:
  template <typename Rep>
  static void release(Rep* rep) {
    static ContainerRelease& queue = *new ContainerRelease;  // never destroyed: static values may outlive it
    queue.add(rep);
    if (!queue._draining) queue.drain();
  }

 private:
  using AnyRep = std::variant<Array::Rep*, Dictionary::Rep*>;

  void add(AnyRep rep) { _pending.push_back(rep); }

  void drain() {
    _draining = true;
    while (!_pending.empty()) {
      const AnyRep rep = _pending.back();
      _pending.pop_back();
      std::visit([](auto* dropped) { delete dropped; }, rep);
    }
    _draining = false;
  }

  std::vector<AnyRep> _pending;
  bool _draining = false;
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
    _payload = static_cast<std::int64_t>(value);
  } else {
    _payload = value;
  }
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

bool Value::isNumber() const {
  return as<bool>() || as<std::int64_t>() || as<std::uint64_t>() || as<double>();
}

const char* Value::typeName() const {
  static constexpr const char* kNames[] = {"boolean", "integer", "integer", "real",       "date",
                                           "string",  "data",    "array",   "dictionary", "URL"};
  return kNames[_payload.index()];
}

namespace {

// Pairs of values that are still to be compared; containers put their contents here instead of recursing.
class EqualityWalk {
 public:
  void add(const Array& a, const Array& b) {
    if (a.isSameInstance(b)) return;
    if (a.size() != b.size()) {
      _equal = false;
      return;
    }
    for (std::size_t i = 0; i < a.size(); ++i) _pending.emplace_back(&a[i], &b[i]);
  }

  void add(const Dictionary& a, const Dictionary& b) {
    if (a.isSameInstance(b)) return;
    if (a.size() != b.size()) {
      _equal = false;
      return;
    }
    for (const auto& entry : a) {
      const Value* other = b.find(entry.key);
      if (!other) {
        _equal = false;
        return;
      }
      _pending.emplace_back(&entry.value, other);
    }
  }

  bool finish() {
    while (_equal && !_pending.empty()) {
      const auto [a, b] = _pending.back();
      _pending.pop_back();
      compare(*a, *b);
    }
    return _equal;
  }

 private:
  using Pair = std::pair<const void*, const void*>;
  struct PairHash {
    std::size_t operator()(const Pair& pair) const {
      return std::hash<const void*>()(pair.first) * 31 + std::hash<const void*>()(pair.second);
    }
  };

  // Containers that are shared many times over would be walked once for each path that leads to them. A walk
  // that gets long therefore remembers the pairs it has met; a short one is spared the cost.
  static constexpr std::size_t kLongWalk = 4096;

  template <typename Container>
  void addOnce(const Container& a, const Container& b) {
    if (++_containers > kLongWalk && !_met.emplace(a.identity(), b.identity()).second) return;
    add(a, b);
  }

  void compare(const Value& a, const Value& b) {
    if (a.as<Array>() && b.as<Array>()) {
      addOnce(*a.as<Array>(), *b.as<Array>());
    } else if (a.as<Dictionary>() && b.as<Dictionary>()) {
      addOnce(*a.as<Dictionary>(), *b.as<Dictionary>());
    } else {
      // Of two different types, or of one type that is no container: the variant compares without recursion.
      _equal = a.payload() == b.payload();
    }
  }

  std::vector<std::pair<const Value*, const Value*>> _pending;
  std::size_t _containers = 0;
  std::unordered_set<Pair, PairHash> _met;
  bool _equal = true;
};

template <typename Container>
bool equalContainers(const Container& a, const Container& b) {
  EqualityWalk walk;
  walk.add(a, b);
  return walk.finish();
}

}  // namespace

bool operator==(const Array& a, const Array& b) { return equalContainers(a, b); }
bool operator==(const Dictionary& a, const Dictionary& b) { return equalContainers(a, b); }
bool operator==(const Value& a, const Value& b) { return a.payload() == b.payload(); }

namespace {

template <typename Number>
std::string numberText(Number number) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
  return std::string(buffer, result.ptr);
}

std::string hexText(const Data& data) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "<";
  for (const char byte : data.bytes()) {
    const auto bits = static_cast<unsigned char>(byte);
    text += kDigits[bits >> 4];
    text += kDigits[bits & 15];
  }
  return text + ">";
}

// Prints containers with a stack of what is still to come: literal text, keys and values.
class DescriptionWalk {
 public:
  std::string print(const Value& value) {
    _pending.emplace_back(&value);
    return run();
  }

  template <typename Container>
  std::string printContainer(const Container& container) {
    open(container);
    return run();
  }

 private:
  using Item = std::variant<const Value*, const String*, const char*>;

  std::string run() {
    while (!_pending.empty()) {
      const Item item = _pending.back();
      _pending.pop_back();
      if (const auto* text = std::get_if<const char*>(&item)) {
        _text += *text;
      } else if (const auto* key = std::get_if<const String*>(&item)) {
        _text += (*key)->view();
      } else {
        printValue(*std::get<const Value*>(item));
      }
    }
    return std::move(_text);
  }

  void open(const Array& array) {
    _text += '(';
    _pending.emplace_back(")");
    for (std::size_t i = array.size(); i-- > 0;) {
      _pending.emplace_back(&array[i]);
      if (i > 0) _pending.emplace_back(", ");
    }
  }

  void open(const Dictionary& dictionary) {
    _text += '{';
    std::vector<Item> items;
    const char* separator = nullptr;
    for (const auto& entry : dictionary) {
      if (separator) items.emplace_back(separator);
      items.emplace_back(&entry.key);
      items.emplace_back(" = ");
      items.emplace_back(&entry.value);
      separator = "; ";
    }
    items.emplace_back("}");
    _pending.insert(_pending.end(), items.rbegin(), items.rend());
  }

  void printValue(const Value& value) {
    if (const auto* array = value.as<Array>()) return open(*array);
    if (const auto* dictionary = value.as<Dictionary>()) return open(*dictionary);
    if (const auto* boolean = value.as<bool>()) _text += *boolean ? '1' : '0';
    if (const auto* integer = value.as<std::int64_t>()) _text += numberText(*integer);
    if (const auto* large = value.as<std::uint64_t>()) _text += numberText(*large);
    if (const auto* real = value.as<double>()) _text += numberText(*real);
    if (const auto* date = value.as<Date>()) _text += description(*date);
    if (const auto* text = value.as<String>()) _text += text->view();
    if (const auto* data = value.as<Data>()) _text += hexText(*data);
    if (const auto* url = value.as<Url>()) _text += url->text.view();
  }

  std::vector<Item> _pending;
  std::string _text;
};

}  // namespace

std::string description(const Value& value) { return DescriptionWalk().print(value); }
std::string description(const Array& array) { return DescriptionWalk().printContainer(array); }
std::string description(const Dictionary& dictionary) { return DescriptionWalk().printContainer(dictionary); }

}  // namespace corvane
