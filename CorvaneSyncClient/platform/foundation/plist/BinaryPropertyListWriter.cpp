// Writes the binary flavour in two passes: the first gives every distinct object a number, breadth first, so
// that depth needs no stack; the second writes the objects in that order, then the table of their offsets and
// the trailer.

#include <array>
#include <limits>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/foundation/HashIndex.h"
#include "CorvaneSyncClient/platform/foundation/plist/BinaryPropertyListTrailer.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {

namespace {

using Kind = Value::Kind;

// One object of the file: a payload inside the value that is being written.
struct Object {
  Kind kind;
  std::uint32_t hash;
  union {
    const void* payload;
    std::uint64_t offset;  // in the file, once it is written
  };

  template <typename T>
  const T& as() const {
    return *static_cast<const T*>(payload);
  }
};

// For addresses, which nobody else can choose.
std::uint32_t mix(std::uint64_t bits) {
  bits *= 0x9E3779B97F4A7C15U;  // Fibonacci hashing: 2^64 divided by the golden ratio
  return static_cast<std::uint32_t>(bits >> 32);
}

// Numbers come from others as texts do, who must not be able to choose ones that all collide.
std::uint32_t payloadHash(std::uint64_t value) {
  return hashOf({reinterpret_cast<const char*>(&value), sizeof value});
}
std::uint32_t payloadHash(bool value) { return value ? 1 : 0; }
std::uint32_t payloadHash(std::int64_t value) { return payloadHash(static_cast<std::uint64_t>(value)); }
std::uint32_t payloadHash(double value) { return payloadHash(std::bit_cast<std::uint64_t>(value)); }
std::uint32_t payloadHash(const Date& value) { return payloadHash(value.seconds); }
std::uint32_t payloadHash(const String& value) { return value.hash(); }
std::uint32_t payloadHash(const Data& value) { return hashOf(value.bytes()); }
std::uint32_t payloadHash(const Array& value) {
  return mix(reinterpret_cast<std::uintptr_t>(value.identity()));
}
std::uint32_t payloadHash(const Dictionary& value) {
  return mix(reinterpret_cast<std::uintptr_t>(value.identity()));
}
std::uint32_t payloadHash(const Url&) {
  throw PropertyListException(Message("a property list cannot hold a URL value"));
}

std::uint32_t hashFor(Kind kind, std::uint32_t payload) { return payload + static_cast<std::uint32_t>(kind); }

Object objectFor(const Value& value) {
  const Kind kind = value.kind();
  return value.visit([kind](const auto& payload) {
    return Object{kind, hashFor(kind, payloadHash(payload)), {&payload}};
  });
}

Object objectFor(const String& key) { return {Kind::string, hashFor(Kind::string, key.hash()), {&key}}; }

bool sameBits(double a, double b) {
  return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b);
}

// Whether both can stand once in the file.
bool areSame(const Object& a, const Object& b) {
  if (a.hash != b.hash || a.kind != b.kind) return false;
  switch (a.kind) {
    case Kind::boolean:
      return a.as<bool>() == b.as<bool>();
    case Kind::integer:
    case Kind::largeInteger:
      return a.as<std::uint64_t>() == b.as<std::uint64_t>();
    case Kind::real:
      return sameBits(a.as<double>(), b.as<double>());
    case Kind::date:
      return sameBits(a.as<Date>().seconds, b.as<Date>().seconds);
    case Kind::string:
      return a.as<String>() == b.as<String>();
    case Kind::data:
      return a.as<Data>() == b.as<Data>();
    case Kind::array:
      return a.as<Array>().isSameInstance(b.as<Array>());
    case Kind::dictionary:
      return a.as<Dictionary>().isSameInstance(b.as<Dictionary>());
    case Kind::url:
      break;
  }
  return false;
}

// Whether nobody but the container around it has what is at that identity, so that it is met once.
bool isMetOnce(const void* identity) {
  return identity && !static_cast<const RefCounted*>(identity)->isShared();
}
bool isMetOnce(const Object& object) {
  if (object.kind == Kind::array) return isMetOnce(object.as<Array>().identity());
  return object.kind == Kind::dictionary && isMetOnce(object.as<Dictionary>().identity());
}

// The distinct objects of a value, each with its number, and for every container the numbers of its contents.
class ObjectTable {
 public:
  explicit ObjectTable(const Value& top) {
    number(objectFor(top));
    for (std::size_t i = 0; i < _objects.size(); ++i) {
      const Object object = _objects[i];
      if (object.kind == Kind::array) {
        for (const Value& value : object.as<Array>()) _references.push_back(number(objectFor(value)));
      } else if (object.kind == Kind::dictionary) {
        for (const auto& entry : object.as<Dictionary>()) _references.push_back(number(objectFor(entry.key)));
        for (const auto& entry : object.as<Dictionary>()) {
          _references.push_back(number(objectFor(entry.value)));
        }
      }
    }
    _numbers = {};
  }

  std::vector<Object>& objects() { return _objects; }
  // Of all containers one after another, in the order of the objects.
  const std::vector<std::uint32_t>& references() const { return _references; }

 private:
  std::uint32_t number(const Object& object) {
    if (isMetOnce(object)) return enter(object);
    const std::uint32_t met =
        _numbers.find(object.hash, [&](std::uint32_t number) { return areSame(_objects[number], object); });
    if (met != HashIndex::kNowhere) return met;
    const std::uint32_t number = enter(object);
    _numbers.enter(object.hash, number);
    return number;
  }

  std::uint32_t enter(const Object& object) {
    if (_objects.size() == std::numeric_limits<std::uint32_t>::max() - 1) {
      throw PropertyListException(Message("binary property list: too many objects"));
    }
    _objects.push_back(object);
    return static_cast<std::uint32_t>(_objects.size() - 1);
  }

  std::vector<Object> _objects;
  std::vector<std::uint32_t> _references;
  HashIndex _numbers;  // of what may be met again
};

// Gives the text away in pieces.
class BinaryWriter {
 public:
  BinaryWriter(const Value& value, const TakeBytes& take)
      : _take(take), _table(value), _referenceSize(binaryWidthFor(_table.objects().size())) {}

  void write() {
    _text = kBinaryHeader;
    for (Object& object : _table.objects()) {
      const std::uint64_t offset = _given + _text.size();
      writeObject(object);
      object.offset = offset;
      giveIfLong();
    }
    writeEnd();
    _take(_text);
  }

 private:
  static constexpr std::size_t kPiece = 256 * 1024;

  void giveIfLong() {
    if (_text.size() >= kPiece) give();
  }

  void give() {
    _take(_text);
    _given += _text.size();
    _text.clear();
  }

  // Long ones without a copy.
  void appendBytes(std::string_view bytes) {
    if (bytes.size() < kPiece) {
      _text += bytes;
      return;
    }
    give();
    _take(bytes);
    _given += bytes.size();
  }

  void append(std::uint64_t number, std::size_t size) {
    char bytes[8];
    storeBigEndian(bytes, number, size);
    _text.append(bytes, size);
  }

  void appendMarker(unsigned kind, unsigned detail) { _text += static_cast<char>(kind << 4 | detail); }

  void appendMarkerAndCount(unsigned kind, std::uint64_t count) {
    if (count < 15) return appendMarker(kind, static_cast<unsigned>(count));
    appendMarker(kind, 15);
    appendSized(count, binaryWidthFor(count));
  }

  // An integer object of `size` bytes.
  void appendSized(std::uint64_t number, std::size_t size) {
    appendMarker(1, static_cast<unsigned>(std::countr_zero(size)));
    append(number, size);
  }

  void writeObject(const Object& object) {
    switch (object.kind) {
      case Kind::boolean:
        return appendMarker(0, object.as<bool>() ? 9 : 8);
      case Kind::integer:
        return writeInteger(object.as<std::int64_t>());
      case Kind::largeInteger:
        return writeLargeInteger(object.as<std::uint64_t>());
      case Kind::real:
        appendMarker(2, 3);
        return append(std::bit_cast<std::uint64_t>(object.as<double>()), 8);
      case Kind::date:
        appendMarker(3, 3);
        return append(std::bit_cast<std::uint64_t>(object.as<Date>().seconds), 8);
      case Kind::string:
        return writeString(object.as<String>().view());
      case Kind::data:
        appendMarkerAndCount(4, object.as<Data>().bytes().size());
        return appendBytes(object.as<Data>().bytes());
      case Kind::array:
        appendMarkerAndCount(0xA, object.as<Array>().size());
        return writeReferences(object.as<Array>().size());
      case Kind::dictionary:
        appendMarkerAndCount(0xD, object.as<Dictionary>().size());
        return writeReferences(object.as<Dictionary>().size() * 2);
      case Kind::url:
        break;  // the table of objects has refused it
    }
  }

  // Eight bytes are read with a sign, fewer without.
  void writeInteger(std::int64_t number) {
    const auto bits = static_cast<std::uint64_t>(number);
    appendSized(bits, number < 0 ? 8 : binaryWidthFor(bits));
  }

  void writeLargeInteger(std::uint64_t number) {
    appendMarker(1, 4);
    append(0, 8);
    append(number, 8);
  }

  void writeString(std::string_view text) {
    if (isAscii(text)) {
      appendMarkerAndCount(5, text.size());
      _text += text;
      return;
    }
    _units.clear();
    for (std::size_t at = 0; at < text.size();) {
      const Utf8Step step = decodeUtf8(text, at);
      if (!step) {
        throw PropertyListException(Message(
            "a property list cannot hold text that is no UTF-8 (byte %1 of a string)", std::to_string(at)));
      }
      at += step.length;
      appendUnits(step.codePoint);
    }
    appendMarkerAndCount(6, _units.size());
    for (const char16_t unit : _units) append(unit, 2);
  }

  void appendUnits(char32_t codePoint) {
    if (codePoint >= 0x10000) {
      _units += static_cast<char16_t>(0xD7C0 + (codePoint >> 10));
      codePoint = 0xDC00 | (codePoint & 0x3FF);
    }
    _units += static_cast<char16_t>(codePoint);
  }

  void writeReferences(std::size_t count) {
    appendNumbers(_table.references().data() + _nextReference, count, _referenceSize);
    _nextReference += count;
  }

  template <typename Number>
  void appendNumbers(const Number* numbers, std::size_t count, std::size_t size) {
    const std::size_t start = _text.size();
    _text.resize(start + count * size);
    char* const to = _text.data() + start;
    switch (size) {
      case 1:
        return storeNumbers<1>(to, numbers, count);
      case 2:
        return storeNumbers<2>(to, numbers, count);
      case 4:
        return storeNumbers<4>(to, numbers, count);
      default:
        return storeNumbers<8>(to, numbers, count);
    }
  }

  // Of a size that is known here a number is a word and no call.
  template <std::size_t kSize, typename Number>
  static void storeNumbers(char* to, const Number* numbers, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i, to += kSize) storeBigEndian(to, numbers[i], kSize);
  }

  // Offsets and object numbers are wide enough for where the table stands and for how many objects there are,
  // though neither is written in that width: readers are known that demand it.
  void writeEnd() {
    const std::uint64_t table = _given + _text.size();
    const std::size_t offsetSize = binaryWidthFor(table);
    std::vector<std::uint64_t> offsets;
    for (const Object& object : _table.objects()) {
      offsets.push_back(object.offset);
      if (offsets.size() < kPiece / sizeof object.offset) continue;
      appendNumbers(offsets.data(), offsets.size(), offsetSize);
      offsets.clear();
      giveIfLong();
    }
    appendNumbers(offsets.data(), offsets.size(), offsetSize);
    _text.append(6, '\0');
    append(offsetSize, 1);
    append(_referenceSize, 1);
    append(_table.objects().size(), 8);
    append(0, 8);  // the top object is the first
    append(table, 8);
  }

  const TakeBytes& _take;
  ObjectTable _table;
  std::size_t _referenceSize;
  std::size_t _nextReference = 0;
  std::string _text;         // what is not given away yet
  std::uint64_t _given = 0;  // bytes
  std::u16string _units;
};

}  // namespace

void writeBinaryPropertyList(const Value& value, const TakeBytes& take) { BinaryWriter(value, take).write(); }

std::string writeBinaryPropertyList(const Value& value) {
  std::string text;
  writeBinaryPropertyList(value, [&text](std::string_view piece) { text += piece; });
  return text;
}

}  // namespace corvane
