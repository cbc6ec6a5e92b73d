#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/Ref.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/foundation/values/KeyList.h"
#include "CorvaneSyncClient/platform/foundation/values/OrderedMap.h"

namespace corvane {

class Value;

/// Raw bytes of a property list; shared and immutable.
class Data {
 public:
  Data() : Data(std::string_view()) {}
  explicit Data(std::string_view bytes) : _bytes(SharedBytes::make(bytes.data(), bytes.size())) {}
  /// Takes a share of `bytes`.
  explicit Data(SharedBytes* bytes) : _bytes(bytes) {}

  std::string_view bytes() const { return _bytes->view(); }
  friend bool operator==(const Data& a, const Data& b) { return a.bytes() == b.bytes(); }

 private:
  Ref<SharedBytes> _bytes;
};

/// An absolute URL in text form, as a sync record carries it. Property lists cannot hold one.
struct Url {
  String text;
  friend bool operator==(const Url&, const Url&) = default;
};

/// An ordered list of values. Copies share their contents; changing one copy leaves the others as they were.
class Array {
 public:
  Array() = default;
  Array(std::initializer_list<Value> values);
  explicit Array(std::vector<Value> values);

  std::size_t size() const;
  bool empty() const { return size() == 0; }
  const Value& operator[](std::size_t index) const;
  const Value* begin() const;
  const Value* end() const;
  void append(Value value);

  /// Whether both share one representation: equal without a look inside.
  bool isSameInstance(const Array& other) const { return _rep.get() == other._rep.get(); }
  const void* identity() const { return _rep.get(); }
  friend bool operator==(const Array& a, const Array& b);

 private:
  friend class ContainerRelease;
  struct Rep;
  Ref<Rep> _rep;  // empty for no values
};

/// A dictionary with text keys that keeps insertion order: replacing a value keeps its key's place, removing
/// a key and adding it again moves it to the end. Copies share their contents; changing one copy leaves the
/// others as they were. Equality does not look at the order.
///
/// A small one is a list of keys, shared by all that have the same, and one block of values; a large one is a
/// map.
class Dictionary {
 public:
  using Map = OrderedMap<Value>;
  /// Holds until the dictionary is changed or dropped.
  struct Entry {
    const String& key;
    const Value& value;
  };
  class Iterator;

  Dictionary() = default;
  Dictionary(std::initializer_list<std::pair<String, Value>> entries);
  explicit Dictionary(Map entries);
  /// Takes the values under `keys`, as many as these are, out of `values`.
  Dictionary(const KeyList& keys, std::span<Value> values);

  std::size_t size() const;
  bool empty() const { return size() == 0; }
  void reserve(std::size_t count);
  Iterator begin() const;
  Iterator end() const;

  /// The value under `key`, or null. The pointer holds until this dictionary is changed or dropped.
  const Value* find(const String& key) const;
  const Value* find(std::string_view key) const;
  const Value* find(const char* key) const { return find(std::string_view(key)); }
  /// Raises PlatformException "NSInvalidArgumentException" for the absent string, which is no key.
  void set(String key, Value value);
  /// As `set`, for a dictionary all of whose keys are interned: a small one is searched by instance.
  void setInterned(const String& key, Value value);
  /// Answers whether the key was there.
  bool remove(const String& key);
  bool remove(std::string_view key);
  bool remove(const char* key) { return remove(std::string_view(key)); }

  /// The value under `key` in one type; absent when there is none or it is of another type. `boolean` also
  /// takes an integer or a real (true when it is not 0); `integer32` takes numbers and booleans: reals
  /// truncate toward zero, larger integers keep their low 32 bits, and reals outside 64 bits (or no number)
  /// count as absent.
  String string(std::string_view key) const;
  const Array* array(std::string_view key) const;
  const Dictionary* dictionary(std::string_view key) const;
  std::optional<Date> date(std::string_view key) const;
  std::optional<bool> boolean(std::string_view key) const;
  std::optional<std::int32_t> integer32(std::string_view key) const;

  bool isSameInstance(const Dictionary& other) const { return _rep.get() == other._rep.get(); }
  const void* identity() const { return _rep.get(); }
  friend bool operator==(const Dictionary& a, const Dictionary& b);

 private:
  friend class ContainerRelease;
  struct Rep;
  struct LargeRep;
  /// A small dictionary's contents with room for so many values, shared with nobody.
  Rep& ownRep(std::size_t room);
  /// The contents as a map that is shared with nobody.
  Map& ownMap();
  void setAt(std::size_t place, const String& key, Value value);
  bool removeAt(std::size_t place);
  Ref<Rep> _rep;  // empty for no entries
};

/// Anything that a property list or a sync record can hold. Cheap to copy (16 bytes, a shared payload) and
/// immutable. There is no absent Value: absence is a null pointer or an empty optional. Integers beyond 63
/// bits are unsigned.
///
/// Comparing, describing, writing and dropping values uses no recursion, so that depth costs memory and never
/// stack.
class Value {
 public:
  /// What a value can be, in the order of its payloads' types below. From `string` on, a payload is shared.
  enum class Kind : std::uint8_t {
    boolean,
    integer,
    largeInteger,
    real,
    date,
    string,
    data,
    array,
    dictionary,
    url
  };

  /// The boolean false; containers need it for entries that they have swept out.
  Value() : Value(false) {}
  Value(bool value) { hold(value); }
  Value(int value) : Value(std::int64_t{value}) {}
  Value(std::int64_t value) { hold(value); }
  /// Becomes signed where it fits, so that equal numbers are equal values.
  Value(std::uint64_t value);
  Value(double value) { hold(value); }
  Value(Date value) { hold(value); }
  /// `value` must not be the absent string.
  Value(String value) { hold(std::move(value)); }
  Value(const char* value) : Value(String(value)) {}
  Value(std::string_view value) : Value(String(value)) {}
  Value(const std::string& value) : Value(String(value)) {}
  Value(Data value) { hold(std::move(value)); }
  Value(Array value) { hold(std::move(value)); }
  Value(Dictionary value) { hold(std::move(value)); }
  Value(Url value) { hold(std::move(value)); }
  /// Pointers must not turn into booleans.
  template <typename T>
  Value(const T*) = delete;

  Value(const Value& other) : Value(other, Bits()) {
    if (const RefCounted* const payload = shared()) payload->retain();
  }
  Value(Value&& other) noexcept : Value(other, Bits()) { other.hold(false); }
  Value& operator=(Value other) noexcept {
    std::swap(_payload, other._payload);
    std::swap(_kind, other._kind);
    return *this;
  }
  ~Value() {
    const RefCounted* const payload = shared();
    if (payload && payload->release()) destroyShared();
  }

  Kind kind() const { return _kind; }
  /// The payload of one type, or null when the value is of another.
  template <typename T>
  const T* as() const {
    return _kind == kindOf(static_cast<T*>(nullptr)) ? &held<T>() : nullptr;
  }
  /// What `take` answers for the payload.
  template <typename Take>
  decltype(auto) visit(Take take) const {
    switch (_kind) {
      case Kind::boolean:
        return take(held<bool>());
      case Kind::integer:
        return take(held<std::int64_t>());
      case Kind::largeInteger:
        return take(held<std::uint64_t>());
      case Kind::real:
        return take(held<double>());
      case Kind::date:
        return take(held<Date>());
      case Kind::string:
        return take(held<String>());
      case Kind::data:
        return take(held<Data>());
      case Kind::array:
        return take(held<Array>());
      case Kind::dictionary:
        return take(held<Dictionary>());
      case Kind::url:
        break;
    }
    return take(held<Url>());
  }

  /// As Dictionary's accessors of the same names; `string` answers the absent string for another type.
  String string() const;
  std::optional<bool> boolean() const;
  std::optional<std::int32_t> integer32() const;
  /// True for integers, reals and booleans.
  bool isNumber() const { return _kind <= Kind::real; }
  /// What the value is, for messages: "string", "boolean", "integer", "real", "date", "data", "array",
  /// "dictionary" or "URL".
  const char* typeName() const;

  /// By type and value; reals by their bits' value (a NaN differs from itself).
  friend bool operator==(const Value& a, const Value& b);

 private:
  struct Bits {};

  static constexpr Kind kindOf(const bool*) { return Kind::boolean; }
  static constexpr Kind kindOf(const std::int64_t*) { return Kind::integer; }
  static constexpr Kind kindOf(const std::uint64_t*) { return Kind::largeInteger; }
  static constexpr Kind kindOf(const double*) { return Kind::real; }
  static constexpr Kind kindOf(const Date*) { return Kind::date; }
  static constexpr Kind kindOf(const String*) { return Kind::string; }
  static constexpr Kind kindOf(const Data*) { return Kind::data; }
  static constexpr Kind kindOf(const Array*) { return Kind::array; }
  static constexpr Kind kindOf(const Dictionary*) { return Kind::dictionary; }
  static constexpr Kind kindOf(const Url*) { return Kind::url; }

  /// Has the payload of `other` without a share of its own.
  Value(const Value& other, Bits) : _payload(other._payload), _kind(other._kind) {}

  template <typename T>
  void hold(T value) {
    static_assert(sizeof(T) <= sizeof(Payload) && alignof(T) <= alignof(Payload));
    _payload = {};
    ::new (_payload.bytes) T(std::move(value));
    _kind = kindOf(static_cast<T*>(nullptr));
  }
  template <typename T>
  const T& held() const {
    return *std::launder(reinterpret_cast<const T*>(_payload.bytes));
  }
  /// What the payload shares; null for nothing. Each of the shared types is a pointer to a RefCounted, so
  /// that a value is copied, moved and dropped without a look at which it is.
  const RefCounted* shared() const {
    return _kind < Kind::string ? nullptr : std::bit_cast<const RefCounted*>(_payload);
  }
  /// Drops the last share.
  void destroyShared();

  struct Payload {
    alignas(8) std::byte bytes[8];
  };
  Payload _payload;
  Kind _kind;
};

/// Bytes of a value's description, without the mark at a cut.
inline constexpr std::size_t kDescriptionLimit = 16 * 1024;

/// Text for logs and messages: strings as they are, numbers in C's shortest exact form, booleans 1 and 0,
/// dates as `description(Date)`, data as "<0a1b>", arrays as "(a, b)", dictionaries as "{k = v; l = w}", URLs
/// as their text. It adds no line breaks of its own; those in strings stay, and the log escapes them.
///
/// A text beyond `kDescriptionLimit` is cut between characters and ends in "…". It is more than a line of the
/// log holds, and time and memory are bounded by it, however large the value is.
std::string description(const Value& value);
std::string description(const Array& array);
std::string description(const Dictionary& dictionary);

struct Array::Rep : RefCounted {
  std::vector<Value> values;
  Rep* nextDropped = nullptr;  // see ContainerRelease
  static void destroy(Rep* rep);
};

/// The head of a small dictionary's block, or that of a large one's contents.
struct Dictionary::Rep : RefCounted {
  /// One with room for some values, at least one, and no keys yet.
  static Rep* make(std::size_t room);
  static void destroy(Rep* rep);

  bool isLarge() const { return room == 0; }
  Map& map();
  Value* values() { return reinterpret_cast<Value*>(this + 1); }

  std::uint16_t size = 0;  // values of a small one, which stand behind this
  std::uint16_t room = 0;  // for values
  union {
    const KeyList* keys = nullptr;  // of a small one
    Rep* nextDropped;               // see ContainerRelease
  };
};

struct Dictionary::LargeRep : Rep {
  Map map;
};

class Dictionary::Iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Entry;
  using difference_type = std::ptrdiff_t;
  using reference = Entry;
  struct pointer {
    Entry entry;
    const Entry* operator->() const { return &entry; }
  };

  Iterator() = default;
  Iterator(const String* key, const Value* value) : _key(key), _value(value) {}
  explicit Iterator(Map::const_iterator large) : _large(large) {}

  Entry operator*() const { return _key ? Entry{*_key, *_value} : Entry{_large->key, _large->value}; }
  pointer operator->() const { return {**this}; }
  Iterator& operator++() {
    if (_key) {
      ++_key;
      ++_value;
    } else {
      ++_large;
    }
    return *this;
  }
  Iterator operator++(int) {
    Iterator before = *this;
    ++*this;
    return before;
  }
  friend bool operator==(const Iterator& a, const Iterator& b) {
    return a._key == b._key && a._large == b._large;
  }

 private:
  // In a small dictionary; null in a large one.
  const String* _key = nullptr;
  const Value* _value = nullptr;
  Map::const_iterator _large;
};

inline std::size_t Array::size() const { return _rep ? _rep->values.size() : 0; }
inline const Value& Array::operator[](std::size_t index) const { return _rep->values[index]; }
inline const Value* Array::begin() const { return _rep ? _rep->values.data() : nullptr; }
inline const Value* Array::end() const { return _rep ? _rep->values.data() + _rep->values.size() : nullptr; }

}  // namespace corvane
