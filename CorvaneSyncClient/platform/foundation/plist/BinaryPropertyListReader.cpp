// The binary flavour, version 00: "bplist00", the objects, a table of their offsets, and a trailer of 32
// bytes that says how wide offsets and object numbers are, how many objects there are, which one is the whole
// and where the table stands. Containers name their contents by object number, so that objects may be shared.

#include <algorithm>
#include <array>
#include <bit>
#include <functional>
#include <iterator>
#include <limits>
#include <optional>
#include <span>
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

// Which of a file's objects are named more than once. Most are not, and those that are get numbers without
// gaps.
class SharedObjects {
 public:
  explicit SharedObjects(std::uint64_t count)
      : _count(count), _named(count / 64 + 1), _shared(count / 64 + 1), _bits(_shared.data()) {}
  SharedObjects(const SharedObjects&) = delete;
  SharedObjects& operator=(const SharedObjects&) = delete;

  // Names the objects whose numbers, of so many bytes each, stand there; those that are none are passed by.
  void nameAll(const char* numbers, std::uint64_t count, std::size_t size) {
    const char* const end = numbers + count * size;
    std::uint64_t* const named = _named.data();
    std::uint64_t* const shared = _shared.data();
    for (; numbers != end; numbers += size) {
      const std::uint64_t object = loadBigEndianOfEight(numbers, size);
      if (object >= _count) continue;
      const std::uint64_t bit = std::uint64_t{1} << (object % 64);
      shared[object / 64] |= named[object / 64] & bit;
      named[object / 64] |= bit;
    }
  }
  void takeAllForShared() { std::fill(_shared.begin(), _shared.end(), ~std::uint64_t{0}); }

  // Once all are named. Answers how many are shared.
  std::size_t number() {
    _named = {};
    _before.reserve(_shared.size());
    std::size_t count = 0;
    for (const std::uint64_t word : _shared) {
      _before.push_back(static_cast<std::uint32_t>(count));
      count += static_cast<std::size_t>(std::popcount(word));
    }
    return count;
  }

  bool contains(std::uint64_t object) const { return (_bits[object / 64] >> (object % 64) & 1) != 0; }
  std::size_t numberOf(std::uint64_t object) const {
    const std::uint64_t below = _bits[object / 64] & ((std::uint64_t{1} << (object % 64)) - 1);
    return _before[object / 64] + static_cast<std::size_t>(std::popcount(below));
  }

 private:
  std::uint64_t _count;
  std::vector<std::uint64_t> _named, _shared;  // a bit for each object
  const std::uint64_t* _bits;                  // the latter's
  std::vector<std::uint32_t> _before;          // for each of its words, how many are shared before it
};

// Builds each object once, at its first use, with a stack of the containers that are open; depth is never
// recursion. Objects that are named more than once are kept for their next use.
class BinaryReader {
 public:
  explicit BinaryReader(std::string_view bytes)
      : _bytes(bytes),
        _trailer(readBinaryTrailer(bytes)),
        _budget(kOverlapAllowance * bytes.size()),
        _sharedObjects(_trailer.count) {
    findShared();
    _kept.resize(_sharedObjects.number());
  }

  Value read() {
    const std::uint64_t end = _bytes.size() - kBinaryTrailerSize;
    if (gather(_trailer.top, end) == kNotBuilt) open(_trailer.top);
    while (!_open.empty()) advance();
    return std::move(_values.back());
  }

 private:
  // An object that is named more than once.
  struct Kept {
    Value value;
    std::uint32_t height = kNotBuilt;
    bool isInterned = false;  // a key, of which there is one String for each text
  };
  // A container whose contents are being gathered: at the end of `_values`, from `first` on.
  struct OpenContainer {
    std::uint64_t object = 0;
    std::uint64_t offset = 0;
    const char* keys = nullptr;        // object numbers of the keys; null for an array
    const char* references = nullptr;  // object numbers of the values
    const KeyList* keyList = nullptr;  // null for keys that make none
    std::size_t count = 0;
    std::size_t next = 0;
    std::size_t first = 0;
    std::uint32_t room = 0;    // for the heights of what is inside
    std::uint32_t height = 0;  // of the tallest container inside
  };
  // A count and the bytes that follow it.
  struct Counted {
    std::uint64_t count = 0;
    std::uint64_t start = 0;
  };
  // The keys of a dictionary that was read.
  struct KnownKeys {
    std::string_view numbers;
    const KeyList* list = nullptr;
  };

  // States of an object: not built, being built, or 1 + how many containers it nests, itself included.
  static constexpr std::uint32_t kNotBuilt = 0;
  static constexpr std::uint32_t kScalar = 1;
  static constexpr std::uint32_t kBeingBuilt = std::numeric_limits<std::uint32_t>::max();
  // Objects of a file do not overlap, but some writers let equal ones share an offset. Beyond this multiple
  // of the data's size the objects overlap on purpose, to fill memory.
  static constexpr std::uint64_t kOverlapAllowance = 2;
  static constexpr std::size_t kKnownKeys = 64;

  char byteAt(std::uint64_t offset) const { return _bytes[offset]; }
  unsigned kindAt(std::uint64_t offset) const { return static_cast<unsigned char>(byteAt(offset)) >> 4; }
  unsigned detailAt(std::uint64_t offset) const { return static_cast<unsigned char>(byteAt(offset)) & 0xF; }

  bool holdsObject(std::uint64_t offset) const {
    return offset >= kBinaryHeader.size() && offset < _trailer.table;
  }

  std::uint64_t offsetOf(std::uint64_t object) const {
    const std::uint64_t entry = _trailer.table + object * _trailer.offsetSize;
    const std::uint64_t offset = loadBigEndianOfEight(_bytes.data() + entry, _trailer.offsetSize);
    if (!holdsObject(offset)) {
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

  // Finds what is named more than once, by all containers of the file; what is wrong with one is left to be
  // found when it is built. The top is named from outside, too. So a container that is inside itself is
  // always a shared one.
  void findShared() {
    char top[8];
    storeBigEndian(top, _trailer.top, sizeof top);
    _sharedObjects.nameAll(top, 1, sizeof top);
    std::uint64_t budget = _budget / _trailer.referenceSize;
    const char* const bytes = _bytes.data();
    const char* entry = bytes + _trailer.table;
    for (std::uint64_t object = 0; object < _trailer.count; ++object, entry += _trailer.offsetSize) {
      const std::uint64_t offset = loadBigEndianOfEight(entry, _trailer.offsetSize);
      if (!holdsObject(offset)) continue;
      const unsigned kind = static_cast<unsigned char>(bytes[offset]) >> 4;
      if (kind != kArray && kind != kDictionary) continue;
      const std::uint64_t perItem = kind == kDictionary ? 2 : 1;
      const auto counted = countAt(offset);
      if (!counted || counted->count > (_trailer.table - counted->start) / (_trailer.referenceSize * perItem))
        continue;
      if (counted->count * perItem > budget) return _sharedObjects.takeAllForShared();
      budget -= counted->count * perItem;
      _sharedObjects.nameAll(bytes + counted->start, counted->count * perItem, _trailer.referenceSize);
    }
  }

  // Where the object is kept; null for one that is named once.
  Kept* keptOf(std::uint64_t object) {
    return _sharedObjects.contains(object) ? &_kept[_sharedObjects.numberOf(object)] : nullptr;
  }

  // `user` is the offset to blame for a bad number.
  void checkNumber(std::uint64_t object, std::uint64_t user) const {
    if (object < _trailer.count) return;
    failBinary(user, Message("object %1 is used, but there are only %2", std::to_string(object),
                             std::to_string(_trailer.count)));
  }

  // Adds the object to the values, if it is built or a scalar that can be built at once. Answers its height;
  // `kNotBuilt` for a container that is yet to be opened.
  std::uint32_t gather(std::uint64_t object, std::uint64_t user) {
    checkNumber(object, user);
    Kept* const kept = keptOf(object);
    if (kept && kept->height != kNotBuilt && kept->height != kBeingBuilt) {
      _values.push_back(kept->value);
      return kept->height;
    }
    const std::uint64_t offset = offsetOf(object);
    if (kept && kept->height == kBeingBuilt)
      failBinary(offset, Message("the container at this offset contains itself"));
    const unsigned kind = kindAt(offset);
    if (kind == kArray || kind == kDictionary) return kNotBuilt;
    _values.push_back(readScalar(kind, offset));
    if (kept) keep(*kept, _values.back(), kScalar);
    return kScalar;
  }

  static void keep(Kept& kept, const Value& value, std::uint32_t height) {
    kept.value = value;
    kept.height = height;
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
    container.first = _values.size();
    if (isDictionary) {
      container.keys = container.references;
      container.references += counted.count * _trailer.referenceSize;
    }
    if (Kept* const kept = keptOf(object)) kept->height = kBeingBuilt;
    if (isDictionary) container.keyList = keyListOf(container);
  }

  [[noreturn]] static void failDepth(std::uint64_t offset) { failBinary(offset, nestsTooDeep()); }

  // Fills the innermost open container until it is complete or something inside must be opened first.
  void advance() {
    OpenContainer& container = _open.back();
    for (; container.next < container.count; ++container.next) {
      const std::uint64_t object = objectAt(container.references, container.next);
      const std::uint32_t height = gather(object, container.offset);
      if (height == kNotBuilt) return open(object);
      enter(container, height);
    }
    close(container);
  }

  // Accounts for the value that was gathered last.
  static void enter(OpenContainer& container, std::uint32_t height) {
    if (height - kScalar > container.room) failDepth(container.offset);
    container.height = std::max(container.height, height - kScalar);
  }

  // The list of a dictionary's keys, which most have in common with one before; null for keys that make none.
  const KeyList* keyListOf(const OpenContainer& container) {
    if (container.count > KeyList::kMostKeys) return nullptr;
    const std::string_view numbers(container.keys, container.count * _trailer.referenceSize);
    KnownKeys& known = _knownKeys[std::hash<std::string_view>()(numbers) % kKnownKeys];
    if (known.list && known.numbers == numbers) return known.list;
    const KeyList* list = &KeyList::none();
    for (std::size_t i = 0; i < container.count && list; ++i) {
      const String key = keyOf(container, i);
      list = list->findInterned(key) == KeyList::kNowhere ? list->with(key) : nullptr;
    }
    if (list) known = {numbers, list};
    return list;
  }

  // The key as it is interned.
  String keyOf(const OpenContainer& container, std::size_t index) {
    const std::uint64_t object = objectAt(container.keys, index);
    checkNumber(object, container.offset);
    Kept* const kept = keptOf(object);
    if (kept && kept->isInterned) return *kept->value.as<String>();
    const bool isBuilt = gather(object, container.offset) != kNotBuilt;
    const Value value = isBuilt ? _values.back() : Value();
    if (isBuilt) _values.pop_back();
    const String* const text = isBuilt ? value.as<String>() : nullptr;
    if (!text) {
      failBinary(offsetOf(object),
                 Message("%1 as the key of a dictionary", isBuilt ? value.typeName() : "container"));
    }
    String key = interned(*text);
    if (kept) {
      kept->value = key;
      kept->isInterned = true;
    }
    return key;
  }

  void close(OpenContainer& container) {
    Value value =
        container.keys
            ? Value(dictionaryOf(container))
            : Value(Array(std::vector<Value>(std::make_move_iterator(_values.begin() + first(container)),
                                             std::make_move_iterator(_values.end()))));
    _values.erase(_values.begin() + first(container), _values.end());
    _values.push_back(std::move(value));
    const std::uint32_t height = kScalar + container.height + 1;
    if (Kept* const kept = keptOf(container.object)) keep(*kept, _values.back(), height);
    _open.pop_back();
    if (_open.empty()) return;
    enter(_open.back(), height);
    ++_open.back().next;
  }

  static std::ptrdiff_t first(const OpenContainer& container) {
    return static_cast<std::ptrdiff_t>(container.first);
  }

  Dictionary dictionaryOf(const OpenContainer& container) {
    if (container.keyList) {
      return {*container.keyList, std::span(_values).subspan(container.first, container.count)};
    }
    Dictionary::Map entries;
    entries.reserve(container.count);
    for (std::size_t i = 0; i < container.count; ++i) {
      const String key = keyOf(container, i);
      entries.setInterned(key, _values[container.first + i]);
    }
    return Dictionary(std::move(entries));
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

  // The count of the object at `offset`, in its marker or as an integer behind it, and where that ends;
  // nothing where there is no such integer.
  std::optional<Counted> countAt(std::uint64_t offset) const {
    const std::uint64_t start = offset + 1;
    if (detailAt(offset) != 0xF) return Counted{detailAt(offset), start};
    if (start >= _trailer.table || kindAt(start) != kInteger || detailAt(start) > 3) return std::nullopt;
    const std::size_t size = std::size_t{1} << detailAt(start);
    if (_trailer.table - start - 1 < size) return std::nullopt;
    return Counted{loadBigEndian(_bytes.data() + start + 1, size), start + 1 + size};
  }

  // As `countAt`, with `unit` bytes for each, all of which lie inside the data.
  Counted readCount(std::uint64_t offset, const char* type, std::size_t unit) {
    const auto counted = countAt(offset);
    if (!counted) failCount(offset, type);
    if (counted->count > (_trailer.table - counted->start) / unit) failBeyond(offset, type);
    payload(offset, counted->start, counted->count * unit, type);
    return *counted;
  }

  [[noreturn]] void failCount(std::uint64_t offset, const char* type) const {
    const std::uint64_t start = offset + 1;
    if (start < _trailer.table && (kindAt(start) != kInteger || detailAt(start) > 3)) {
      failBinary(start, Message("%1 without a count of 1, 2, 4 or 8 bytes", type));
    }
    failBeyond(offset, type);
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
  SharedObjects _sharedObjects;
  std::vector<Kept> _kept;     // by the shared objects' numbers
  std::vector<Value> _values;  // gathered for the containers that are open, one behind the other
  std::array<KnownKeys, kKnownKeys> _knownKeys;
  std::vector<OpenContainer> _open;
};

}  // namespace

Value readBinaryPropertyList(std::string_view bytes) { return BinaryReader(bytes).read(); }

}  // namespace corvane
