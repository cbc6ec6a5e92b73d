// The binary flavour, version 00: "bplist00", the objects, a table of their offsets, and a trailer of 32
// bytes that says how wide offsets and object numbers are, how many objects there are, which one is the whole
// and where the table stands. Containers name their contents by object number, so that objects may be shared.

#include <algorithm>
#include <limits>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/foundation/plist/BinaryPropertyListTrailer.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyListReaders.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {

namespace {

enum Marker : unsigned {
  kSimple = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kAsciiText = 0x5,
  kUtf16Text = 0x6,
  kArray = 0xA,
  kDictionary = 0xD,
};

// Builds each object once, at its first use, with a stack of the containers that are open; depth is never
// recursion.
class BinaryReader {
 public:
  explicit BinaryReader(std::string_view bytes)
      : _bytes(bytes),
        _trailer(readBinaryTrailer(bytes)),
        _budget(kOverlapAllowance * bytes.size()),
        _objects(_trailer.count),
        _heights(_trailer.count, kNotBuilt),
        _isInterned(_trailer.count, 0) {}

  Value read() {
    const std::uint64_t end = _bytes.size() - kBinaryTrailerSize;
    if (!find(_trailer.top, end)) open(_trailer.top);
    while (!_open.empty()) advance();
    return std::move(_objects[_trailer.top]);
  }

 private:
  // A container whose contents are being gathered.
  struct OpenContainer {
    std::uint64_t object = 0;
    std::uint64_t offset = 0;
    const char* keys = nullptr;        // object numbers of the keys; null for an array
    const char* references = nullptr;  // object numbers of the values
    std::size_t count = 0;
    std::size_t next = 0;
    std::uint32_t room = 0;    // for the heights of what is inside
    std::uint32_t height = 0;  // of the tallest container inside
    Dictionary::Map entries;
    std::vector<Value> values;
  };
  // A count and the bytes that follow it.
  struct Counted {
    std::uint64_t count = 0;
    std::uint64_t start = 0;
  };

  // States of an object: not built, being built, or 1 + how many containers it nests, itself included.
  static constexpr std::uint32_t kNotBuilt = 0;
  static constexpr std::uint32_t kScalar = 1;
  static constexpr std::uint32_t kBeingBuilt = std::numeric_limits<std::uint32_t>::max();
  // Objects of a file do not overlap, but some writers let equal ones share an offset. Beyond this multiple
  // of the data's size the objects overlap on purpose, to fill memory.
  static constexpr std::uint64_t kOverlapAllowance = 2;

  char byteAt(std::uint64_t offset) const { return _bytes[offset]; }
  unsigned kindAt(std::uint64_t offset) const { return static_cast<unsigned char>(byteAt(offset)) >> 4; }
  unsigned detailAt(std::uint64_t offset) const { return static_cast<unsigned char>(byteAt(offset)) & 0xF; }

  std::uint64_t offsetOf(std::uint64_t object) const {
    const std::uint64_t entry = _trailer.table + object * _trailer.offsetSize;
    const std::uint64_t offset = loadBigEndianOfEight(_bytes.data() + entry, _trailer.offsetSize);
    if (offset < kBinaryHeader.size() || offset >= _trailer.table) {
      failBinary(entry, Message("object %1 is said to be at %2, where no objects are", std::to_string(object),
                                std::to_string(offset)));
    }
    return offset;
  }

  // The object that the number at `references`, `index` further on, stands for. The trailer is behind all of
  // them.
  std::uint64_t objectAt(const char* references, std::size_t index) const {
    return loadBigEndianOfEight(references + index * _trailer.referenceSize, _trailer.referenceSize);
  }

  // The object, if it is built or a scalar that can be built at once; null for a container yet to be opened.
  // `user` is the offset to blame for a bad number.
  const Value* find(std::uint64_t object, std::uint64_t user) {
    const bool isBuilt =
        object < _trailer.count && _heights[object] != kNotBuilt && _heights[object] != kBeingBuilt;
    return isBuilt ? &_objects[object] : build(object, user);
  }

  // As `find`, for what is not built.
  const Value* build(std::uint64_t object, std::uint64_t user) {
    if (object >= _trailer.count) {
      failBinary(user, Message("object %1 is used, but there are only %2", std::to_string(object),
                               std::to_string(_trailer.count)));
    }
    const std::uint64_t offset = offsetOf(object);
    if (_heights[object] == kBeingBuilt)
      failBinary(offset, Message("the container at this offset contains itself"));
    const unsigned kind = kindAt(offset);
    if (kind == kArray || kind == kDictionary) return nullptr;
    _objects[object] = readScalar(kind, offset);
    _heights[object] = kScalar;
    return &_objects[object];
  }

  void open(std::uint64_t object) {
    const std::uint64_t offset = offsetOf(object);
    const bool isDictionary = kindAt(offset) == kDictionary;
    const Counted counted = readCount(offset, isDictionary ? "dictionary" : "array",
                                      _trailer.referenceSize * (isDictionary ? 2 : 1));
    if (_open.size() == kPropertyListMaximumDepth) failDepth(offset);
    OpenContainer& container = _open.emplace_back();
    container.room = static_cast<std::uint32_t>(kPropertyListMaximumDepth - _open.size());
    container.object = object;
    container.offset = offset;
    container.count = counted.count;
    container.references = _bytes.data() + counted.start;
    if (isDictionary) {
      container.keys = container.references;
      container.references += counted.count * _trailer.referenceSize;
      container.entries.reserve(counted.count);
    } else {
      container.values.reserve(counted.count);
    }
    _heights[object] = kBeingBuilt;
  }

  [[noreturn]] static void failDepth(std::uint64_t offset) { failBinary(offset, nestsTooDeep()); }

  // Fills the innermost open container until it is complete or something inside must be opened first.
  void advance() {
    OpenContainer& container = _open.back();
    for (; container.next < container.count; ++container.next) {
      const std::uint64_t object = objectAt(container.references, container.next);
      const Value* value = find(object, container.offset);
      if (!value) return open(object);
      const std::uint32_t height = _heights[object] - kScalar;
      if (height > container.room) failDepth(container.offset);
      container.height = std::max(container.height, height);
      if (container.keys) {
        container.entries.setInterned(key(container), *value);
      } else {
        container.values.push_back(*value);
      }
    }
    close(container);
  }

  const String& key(const OpenContainer& container) {
    const std::uint64_t object = objectAt(container.keys, container.next);
    if (object >= _trailer.count || !_isInterned[object]) internKey(object, container.offset);
    return *_objects[object].as<String>();
  }

  void internKey(std::uint64_t object, std::uint64_t user) {
    const Value* value = find(object, user);
    const String* text = value ? value->as<String>() : nullptr;
    if (!text) {
      const std::string type = value ? value->typeName() : "container";
      failBinary(offsetOf(object), Message("%1 as the key of a dictionary", type));
    }
    _objects[object] = interned(*text);
    _isInterned[object] = 1;
  }

  void close(OpenContainer& container) {
    _heights[container.object] = kScalar + container.height + 1;
    if (container.keys) {
      _objects[container.object] = Dictionary(std::move(container.entries));
    } else {
      _objects[container.object] = Array(std::move(container.values));
    }
    _open.pop_back();
  }

  Value readScalar(unsigned kind, std::uint64_t offset) {
    switch (kind) {
      case kSimple:
        return readSimple(offset);
      case kInteger:
        return readInteger(offset);
      case kReal:
        return readReal(offset);
      case kDate:
        if (detailAt(offset) != 3) failBinary(offset, Message("a date must take 8 bytes"));
        return Date{readDouble(offset, "date")};
      case kData:
        return readData(offset);
      case kAsciiText:
        return readAscii(offset);
      case kUtf16Text:
        return readUtf16(offset);
      default:
        failType(offset);
    }
  }

  Value readSimple(std::uint64_t offset) {
    if (detailAt(offset) != 8 && detailAt(offset) != 9) failType(offset);
    return detailAt(offset) == 9;
  }

  [[noreturn]] void failType(std::uint64_t offset) const {
    const unsigned kind = kindAt(offset);
    const char* name = kind == 0x8               ? "UID"
                       : kind == 0xB             ? "ordered set"
                       : kind == 0xC             ? "set"
                       : kind != 0x0             ? "unknown"
                       : detailAt(offset) == 0x0 ? "null"
                       : detailAt(offset) == 0xF ? "fill"
                                                 : "unknown";
    static constexpr char kDigits[] = "0123456789abcdef";
    const std::string code{kDigits[kind], kDigits[detailAt(offset)]};
    failBinary(offset, Message("object type 0x%1 (%2) cannot be read", code, name));
  }

  Value readInteger(std::uint64_t offset) {
    const unsigned power = detailAt(offset);
    if (power > 4) failBinary(offset, Message("an integer must take 1, 2, 4, 8 or 16 bytes"));
    const std::size_t size = std::size_t{1} << power;
    const char* at = payload(offset, offset + 1, size, "integer");
    if (size < 8) return static_cast<std::int64_t>(loadBigEndian(at, size));
    if (size == 8) return static_cast<std::int64_t>(loadBigEndian(at, 8));
    const std::uint64_t high = loadBigEndian(at, 8);
    const std::uint64_t low = loadBigEndian(at + 8, 8);
    if (high == 0) return low;
    if (high == ~std::uint64_t{0} && (low >> 63) != 0) return static_cast<std::int64_t>(low);
    failBinary(offset, Message("an integer larger than 64 bits cannot be read"));
  }

  Value readReal(std::uint64_t offset) {
    if (detailAt(offset) == 3) return readDouble(offset, "real");
    if (detailAt(offset) != 2) failBinary(offset, Message("a real must take 4 or 8 bytes"));
    const char* at = payload(offset, offset + 1, 4, "real");
    return double{std::bit_cast<float>(static_cast<std::uint32_t>(loadBigEndian(at, 4)))};
  }

  double readDouble(std::uint64_t offset, const char* type) {
    return std::bit_cast<double>(loadBigEndian(payload(offset, offset + 1, 8, type), 8));
  }

  Value readData(std::uint64_t offset) {
    const Counted counted = readCount(offset, "data", 1);
    return Data(_bytes.substr(counted.start, counted.count));
  }

  Value readAscii(std::uint64_t offset) {
    const Counted counted = readCount(offset, "string", 1);
    const std::string_view text = _bytes.substr(counted.start, counted.count);
    if (!isAscii(text)) failBinary(offset, Message("a string marked as ASCII holds other bytes"));
    return String(text);
  }

  Value readUtf16(std::uint64_t offset) {
    const Counted counted = readCount(offset, "string", 2);
    const char* const units = _bytes.data() + counted.start;
    std::size_t length = 0;
    eachCodePoint(units, counted.count, [&](char32_t codePoint) { length += utf8Length(codePoint); });
    SharedBytes* made = SharedBytes::makeUninitialized(length);
    char* to = made->mutableBytes();
    eachCodePoint(units, counted.count, [&](char32_t codePoint) { to = encodeUtf8(to, codePoint); });
    return String(made);
  }

  // Pairs of surrogates come as one code point, unpaired ones as they are.
  template <typename Take>
  static void eachCodePoint(const char* units, std::uint64_t count, Take take) {
    for (std::uint64_t i = 0; i < count; ++i) {
      char32_t codePoint = static_cast<char32_t>(loadBigEndian(units + 2 * i, 2));
      if (isHighSurrogate(codePoint) && i + 1 < count) {
        const auto low = static_cast<char32_t>(loadBigEndian(units + 2 * i + 2, 2));
        if (isLowSurrogate(low)) {
          codePoint = joinSurrogates(codePoint, low);
          ++i;
        }
      }
      take(codePoint);
    }
  }

  // The count of the object at `offset`, in its marker or as an integer behind it, with `unit` bytes for
  // each, all of which lie inside the data.
  Counted readCount(std::uint64_t offset, const char* type, std::size_t unit) {
    Counted counted{detailAt(offset), offset + 1};
    if (counted.count == 0xF) {
      if (counted.start >= _trailer.table) failBeyond(offset, type);
      const unsigned power = detailAt(counted.start);
      if (kindAt(counted.start) != kInteger || power > 3) {
        failBinary(counted.start, Message("%1 without a count of 1, 2, 4 or 8 bytes", type));
      }
      const std::size_t size = std::size_t{1} << power;
      if (_trailer.table - counted.start - 1 < size) failBeyond(offset, type);
      counted.count = loadBigEndian(_bytes.data() + counted.start + 1, size);
      counted.start += 1 + size;
    }
    if (counted.count > (_trailer.table - counted.start) / unit) failBeyond(offset, type);
    payload(offset, counted.start, counted.count * unit, type);
    return counted;
  }

  // The `size` bytes at `start` that belong to the object at `offset`, checked against the end and against
  // overlap.
  const char* payload(std::uint64_t offset, std::uint64_t start, std::uint64_t size, const char* type) {
    if (size > _trailer.table - start) failBeyond(offset, type);
    if (size > _budget) failBinary(offset, Message("the objects overlap"));
    _budget -= size;
    return _bytes.data() + start;
  }

  [[noreturn]] void failBeyond(std::uint64_t offset, const char* type) const {
    failBinary(offset, Message("%1 reaches beyond the end of the objects", type));
  }

  std::string_view _bytes;
  BinaryTrailer _trailer;
  std::uint64_t _budget;
  std::vector<Value> _objects;
  std::vector<std::uint32_t> _heights;
  std::vector<char> _isInterned;  // 1 for an object that is a key, of which there is one String for each text
  std::vector<OpenContainer> _open;
};

}  // namespace

Value readBinaryPropertyList(std::string_view bytes) { return BinaryReader(bytes).read(); }

}  // namespace corvane
