#include "CorvaneSyncClient/platform/pelto/chain/Contents.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <unordered_map>

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

// Records stand in columns, which take a fifth of the bytes of a dictionary each: fixed widths one after the
// other in a data value, and names and addresses of those that have one in arrays.

namespace corvane::pelto::chain {

namespace {

constexpr std::int64_t kForm = 1;
constexpr std::size_t kUuid = 16;
constexpr std::size_t kHash = 32;
constexpr std::size_t kNameDigits = 32;
constexpr std::size_t kMostRecords = 10'000;
constexpr std::size_t kMostSegments = 100'000;
constexpr std::size_t kMostStates = 100'000;
constexpr std::size_t kMostGivenAgain = 10'000;
constexpr std::int64_t kMostNumber = std::int64_t{1} << 53;

constexpr std::size_t kOriginNumber = 2;  // bytes
static_assert(kSegmentRecords * kHubOrigins.size() < 1U << (8 * kOriginNumber));

enum Flag : unsigned {
  kFolder = 1,
  kTabGroup = 2,
  kSpecial = 4,
  kDeleted = 8,
  kHasParent = 16,
  kHasName = 32,
  kHasUrl = 64,
  kAllFlags = 127,
};

[[noreturn]] void fail(const Message& what) { throw ContentsException(what); }

void append(std::string& bytes, std::uint64_t number, std::size_t size) {
  char encoded[8];
  storeBigEndian(encoded, number, size);
  bytes.append(encoded, size);
}

void appendUuid(std::string& bytes, std::string_view uuid) {
  const auto found = uuidBytes(uuid);
  if (!found) fail(Message("\"%1\" is no UUID", uuid));
  bytes.append(found->data(), found->size());
}

std::string uuidIn(std::string_view bytes, std::size_t at) {
  UuidBytes uuid;
  std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), uuid.size(), uuid.begin());
  return uuidString(uuid);
}

// A dictionary whose entries all have to be there.
class Entries {
 public:
  explicit Entries(const Value& value) : _entries(value.as<Dictionary>()) {
    if (!_entries) fail(Message("a dictionary is expected"));
  }

  bool contains(const char* key) const { return _entries->find(key) != nullptr; }

  template <typename T>
  const T& at(const char* key) const {
    const Value* const value = _entries->find(key);
    if (!value) fail(Message("\"%1\" is missing", key));
    const T* const typed = value->as<T>();
    if (!typed) fail(Message("\"%1\" is of another type", key));
    return *typed;
  }
  const Value& value(const char* key) const {
    const Value* const value = _entries->find(key);
    if (!value) fail(Message("\"%1\" is missing", key));
    return *value;
  }
  std::int64_t number(const char* key, std::int64_t least = 0) const {
    const auto number = at<std::int64_t>(key);
    if (number < least || number > kMostNumber)
      fail(Message("\"%1\" is out of range: %2", key, std::to_string(number)));
    return number;
  }
  std::string_view bytes(const char* key, std::size_t size) const {
    const std::string_view bytes = at<Data>(key).bytes();
    if (bytes.size() != size)
      fail(Message::counted(bytes.size(), "\"%2\" has %1 byte", "\"%2\" has %1 bytes", key));
    return bytes;
  }

 private:
  const Dictionary* _entries;
};

Value readPlist(std::string_view contents) {
  if (!contents.starts_with("bplist")) fail(Message("it is no binary property list"));
  try {
    return readPropertyList(contents);
  } catch (const PropertyListException& exception) {
    fail(exception.message());
  }
}

void requireForm(const Entries& entries) {
  if (entries.number("form", 1) > kForm) throw NewerContentsException();
}

unsigned flagsOf(const HubRecord& record) {
  if (record.deleted) return kDeleted;
  return (record.folder ? kFolder : 0U) | (record.tabGroup ? kTabGroup : 0U) |
         (record.special ? kSpecial : 0U) | (record.parent ? kHasParent : 0U) |
         (record.name ? kHasName : 0U) | (record.url ? kHasUrl : 0U);
}

// The pushes that values come from, each once; the values refer to them by number, from 1. 0 is for unknown.
class OriginColumns {
 public:
  void add(const HubOrigins& origins) {
    for (const String HubOrigins::*each : kHubOrigins)
      append(_numbers, numberOf(origins.*each), kOriginNumber);
  }
  void addDeletion(const String& pushId) { append(_deletions, numberOf(pushId), kOriginNumber); }
  void enter(Dictionary& columns) const {
    if (_known.empty()) return;
    columns.set("pushes", Data(_pushes));
    columns.set("origins", Data(_numbers));
    columns.set("deletions", Data(_deletions));
  }

 private:
  std::size_t numberOf(const String& pushId) {
    if (!pushId) return 0;
    const auto [known, isNew] = _known.try_emplace(pushId, _known.size() + 1);
    if (isNew) appendUuid(_pushes, pushId.view());
    return known->second;
  }

  std::unordered_map<String, std::size_t> _known;
  std::string _pushes, _numbers, _deletions;
};

Dictionary columnsOf(const std::vector<HubRecord>& records, bool withRevisions) {
  std::string ids, flags, positions, parents, revisions;
  OriginColumns origins;
  std::vector<Value> names, urls;
  for (const HubRecord& record : records) {
    const unsigned flag = flagsOf(record);
    appendUuid(ids, record.id.view());
    append(flags, flag, 1);
    append(revisions, static_cast<std::uint64_t>(record.revision), 8);
    if (record.deleted) {
      origins.addDeletion(record.deletedBy);
      continue;
    }
    append(positions, static_cast<std::uint32_t>(record.position), 4);
    if (flag & kHasParent) appendUuid(parents, record.parent.view());
    if (flag & kHasName) names.emplace_back(record.name);
    if (flag & kHasUrl) urls.emplace_back(record.url);
    origins.add(record.origins);
  }
  Dictionary columns{{"ids", Data(ids)},
                     {"flags", Data(flags)},
                     {"positions", Data(positions)},
                     {"parents", Data(parents)},
                     {"names", Array(std::move(names))},
                     {"urls", Array(std::move(urls))}};
  if (withRevisions) columns.set("revisions", Data(revisions));
  origins.enter(columns);
  return columns;
}

// Gives out a column piece by piece.
class Column {
 public:
  Column(const Entries& entries, const char* key) : _bytes(entries.at<Data>(key).bytes()), _key(key) {}

  std::string_view take(std::size_t size) {
    if (_bytes.size() - _at < size) fail(Message("\"%1\" is too short", _key));
    _at += size;
    return _bytes.substr(_at - size, size);
  }
  void requireEnd() const {
    if (_at != _bytes.size()) fail(Message("\"%1\" is too long", _key));
  }

 private:
  std::string_view _bytes;
  const char* _key;
  std::size_t _at = 0;
};

class Texts {
 public:
  Texts(const Entries& entries, const char* key) : _texts(entries.at<Array>(key)), _key(key) {}

  // As UTF-8 that every reader takes, whatever another computer gave.
  String take() {
    const String text = _at < _texts.size() ? _texts[_at++].string() : String();
    if (!text) fail(Message("\"%1\" lacks a text", _key));
    return isValidUtf8(text.view()) ? text : String(repairedUtf8(text.view()));
  }
  void requireEnd() const {
    if (_at != _texts.size()) fail(Message("\"%1\" is too long", _key));
  }

 private:
  const Array& _texts;
  const char* _key;
  std::size_t _at = 0;
};

class OriginReader {
 public:
  explicit OriginReader(const Entries& columns) : _numbers(columns, "origins") {
    const std::string_view pushes = columns.at<Data>("pushes").bytes();
    if (pushes.size() % kUuid != 0 || pushes.size() / kUuid > kMostRecords * kHubOrigins.size())
      fail(Message("\"pushes\" is no list of pushes"));
    for (std::size_t at = 0; at < pushes.size(); at += kUuid) _pushes.emplace_back(uuidIn(pushes, at));
    if (columns.contains("deletions")) _deletions.emplace(columns, "deletions");
  }

  HubOrigins take() {
    HubOrigins origins;
    for (String HubOrigins::*each : kHubOrigins) origins.*each = takeFrom(_numbers);
    return origins;
  }
  String takeDeletion() { return _deletions ? takeFrom(*_deletions) : String(); }
  void requireEnd() const {
    _numbers.requireEnd();
    if (_deletions) _deletions->requireEnd();
  }

 private:
  String takeFrom(Column& column) const {
    const std::uint64_t number = loadBigEndian(column.take(kOriginNumber).data(), kOriginNumber);
    if (number > _pushes.size()) fail(Message("something comes from an unknown push"));
    return number > 0 ? _pushes[number - 1] : String();
  }

  Column _numbers;
  std::optional<Column> _deletions;  // not what versions wrote that did not know of them
  std::vector<String> _pushes;
};

class RecordReader {
 public:
  RecordReader(const Entries& columns, bool withRevisions)
      : _flags(columns.at<Data>("flags").bytes()),
        _ids(columns, "ids"),
        _positions(columns, "positions"),
        _parents(columns, "parents"),
        _names(columns, "names"),
        _urls(columns, "urls") {
    if (_flags.size() > kMostRecords)
      fail(Message::counted(_flags.size(), "there is %1 record", "there are %1 records"));
    if (withRevisions) _revisions.emplace(columns, "revisions");
    if (columns.contains("origins")) _origins.emplace(columns);
  }

  std::vector<HubRecord> read() {
    std::vector<HubRecord> records;
    records.reserve(_flags.size());
    for (const char each : _flags) records.push_back(record(static_cast<unsigned char>(each)));
    for (const Column* column : {&_ids, &_positions, &_parents}) column->requireEnd();
    for (const Texts* texts : {&_names, &_urls}) texts->requireEnd();
    if (_revisions) _revisions->requireEnd();
    if (_origins) _origins->requireEnd();
    return records;
  }

 private:
  HubRecord record(unsigned flags) {
    if (flags & ~kAllFlags || ((flags & kDeleted) && flags != kDeleted))
      fail(Message("a record's flags are unknown"));
    HubRecord record;
    record.id = uuidIn(_ids.take(kUuid), 0);
    if (_revisions) record.revision = static_cast<std::int64_t>(loadBigEndian(_revisions->take(8).data(), 8));
    if (record.revision < 0 || record.revision > kMostNumber)
      fail(Message("a record's revision is out of range"));
    record.deleted = flags & kDeleted;
    if (record.deleted) {
      if (_origins) record.deletedBy = _origins->takeDeletion();
      return record;
    }
    record.folder = flags & kFolder;
    record.tabGroup = flags & kTabGroup;
    record.special = flags & kSpecial;
    record.position =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(loadBigEndian(_positions.take(4).data(), 4)));
    if (flags & kHasParent) record.parent = uuidIn(_parents.take(kUuid), 0);
    if (flags & kHasName) record.name = _names.take();
    if (flags & kHasUrl) record.url = _urls.take();
    if (_origins) record.origins = _origins->take();
    if (textBytes(record) > kLongestHubRecord) fail(Message("a record is too long"));
    return record;
  }

  std::string_view _flags;
  Column _ids, _positions, _parents;
  Texts _names, _urls;
  std::optional<Column> _revisions;
  std::optional<OriginReader> _origins;  // none in what versions wrote that did not know of them
};

Value valueOf(const SegmentRef& segment) {
  return Dictionary{{"name", segment.name}, {"hash", Data(segment.hash)}};
}

SegmentRef segmentIn(const Value& value) {
  const Entries entries(value);
  const std::string name = entries.at<String>("name").toString();
  const bool isName = name.size() == kNameDigits && name.find_first_not_of("0123456789abcdef") == name.npos;
  if (!isName) fail(Message("a segment has no name"));
  return {name, std::string(entries.bytes("hash", kHash))};
}

Array arrayOf(const std::vector<SegmentRef>& segments) {
  std::vector<Value> values;
  for (const SegmentRef& each : segments) values.push_back(valueOf(each));
  return Array(std::move(values));
}

std::vector<SegmentRef> segmentsIn(const Array& values) {
  if (values.size() > kMostSegments)
    fail(Message::counted(values.size(), "there is %1 segment", "there are %1 segments"));
  std::vector<SegmentRef> segments;
  for (const Value& each : values) segments.push_back(segmentIn(each));
  return segments;
}

Dictionary dictionaryOf(const Snapshot& snapshot) {
  return {{"history", valueOf(snapshot.history)},
          {"segments", arrayOf(snapshot.segments)},
          {"forgotten", snapshot.forgotten}};
}

Snapshot snapshotIn(const Value& value) {
  const Entries entries(value);
  return {segmentIn(entries.value("history")), segmentsIn(entries.at<Array>("segments")),
          entries.number("forgotten")};
}

GenerationChange changeIn(const Value& value) {
  try {
    return generationChangeFrom(value);
  } catch (const SealedFormException& exception) {
    fail(exception.message());
  }
}

Data dataOf(const std::vector<GivenAgain>& states) {
  if (states.size() > kMostGivenAgain) fail(Message("it gives more states again than anybody reads"));
  std::string bytes;
  for (const GivenAgain& each : states) {
    append(bytes, static_cast<std::uint64_t>(each.number), 8);
    appendUuid(bytes, each.pushId);
  }
  return Data(bytes);
}

std::vector<GivenAgain> givenAgainIn(std::string_view bytes) {
  constexpr std::size_t kSize = 8 + kUuid;
  if (bytes.size() % kSize != 0 || bytes.size() / kSize > kMostGivenAgain)
    fail(Message("\"again\" is no list of states"));
  std::vector<GivenAgain> states;
  for (std::size_t at = 0; at < bytes.size(); at += kSize) {
    const auto number = static_cast<std::int64_t>(loadBigEndian(bytes.data() + at, 8));
    if (number < 1 || number > kMostNumber) fail(Message("a state is out of range"));
    states.push_back({number, uuidIn(bytes, at + 8)});
  }
  return states;
}

Link linkIn(const Entries& entries) {
  Link link;
  link.number = entries.number("number", 1);
  link.previous = entries.bytes("previous", kHash);
  link.pushId = uuidIn(entries.bytes("push", kUuid), 0);
  link.before = entries.number("before");
  link.tail = entries.number("tail");
  link.records = entries.number("live");
  link.bytes = entries.number("bytes");
  link.segments = entries.number("size");
  if (entries.contains("again")) link.givesAgain = givenAgainIn(entries.at<Data>("again").bytes());
  link.isCheckpoint = entries.contains("snapshot");
  link.isLast = entries.contains("change");
  if (link.isCheckpoint) link.keeps = entries.number("keeps");
  if (link.keeps >= link.number || link.before >= link.number) fail(Message("it refers to a later commit"));
  return link;
}

}  // namespace

std::size_t textBytes(const HubRecord& record) {
  return record.name.view().size() + record.url.view().size();
}

std::vector<std::vector<HubRecord>> segmented(std::vector<HubRecord> records) {
  std::vector<std::vector<HubRecord>> parts;
  std::size_t bytes = 0;
  for (HubRecord& record : records) {
    if (parts.empty() || parts.back().size() == kSegmentRecords || bytes >= kSegmentBytes) {
      parts.emplace_back();
      bytes = 0;
    }
    bytes += textBytes(record);
    parts.back().push_back(std::move(record));
  }
  return parts;
}

std::string writeCommit(const Commit& commit) {
  std::string pushId;
  appendUuid(pushId, commit.link.pushId);
  std::string writer;
  appendUuid(writer, commit.writer.view());
  const Link& link = commit.link;
  Dictionary entries{{"form", kForm},
                     {"number", link.number},
                     {"previous", Data(link.previous)},
                     {"push", Data(pushId)},
                     {"writer", Data(writer)},
                     {"time", commit.time},
                     {"before", link.before},
                     {"tail", link.tail},
                     {"live", link.records},
                     {"bytes", link.bytes},
                     {"size", link.segments},
                     {"records", columnsOf(commit.records, false)},
                     {"segments", arrayOf(commit.segments)}};
  if (!link.givesAgain.empty()) entries.set("again", dataOf(link.givesAgain));
  if (commit.snapshot) {
    entries.set("keeps", link.keeps);
    entries.set("snapshot", dictionaryOf(*commit.snapshot));
  }
  if (commit.change) entries.set("change", pelto::valueOf(*commit.change));
  return writeBinaryPropertyList(entries);
}

Commit readCommit(std::string_view contents) {
  const Value value = readPlist(contents);
  const Entries entries(value);
  requireForm(entries);
  Commit commit;
  commit.link = linkIn(entries);
  commit.writer = uuidIn(entries.bytes("writer", kUuid), 0);
  commit.time = entries.at<Date>("time");
  commit.records = RecordReader(Entries(entries.value("records")), false).read();
  for (HubRecord& each : commit.records) each.revision = commit.link.number;
  commit.segments = segmentsIn(entries.at<Array>("segments"));
  if (commit.link.isCheckpoint) commit.snapshot = snapshotIn(entries.value("snapshot"));
  if (commit.link.isLast) commit.change = changeIn(entries.value("change"));
  return commit;
}

std::string writeSegment(const std::vector<HubRecord>& records) {
  Dictionary entries = columnsOf(records, true);
  entries.set("form", kForm);
  return writeBinaryPropertyList(entries);
}

std::vector<HubRecord> readSegment(std::string_view contents) {
  const Value value = readPlist(contents);
  const Entries entries(value);
  requireForm(entries);
  return RecordReader(entries, true).read();
}

std::string writeHistory(const std::vector<PastState>& states) {
  std::string numbers, pushIds, dates;
  for (const PastState& each : states) {
    append(numbers, static_cast<std::uint64_t>(each.number), 8);
    appendUuid(pushIds, each.pushId);
    append(dates, std::bit_cast<std::uint64_t>(each.date.seconds), 8);
  }
  return writeBinaryPropertyList(Dictionary{
      {"form", kForm}, {"numbers", Data(numbers)}, {"pushes", Data(pushIds)}, {"dates", Data(dates)}});
}

std::vector<PastState> readHistory(std::string_view contents) {
  const Value value = readPlist(contents);
  const Entries entries(value);
  requireForm(entries);
  const std::string_view numbers = entries.at<Data>("numbers").bytes();
  const std::size_t count = numbers.size() / 8;
  if (numbers.size() % 8 != 0 || count > kMostStates) fail(Message("\"numbers\" is no list of states"));
  const std::string_view pushIds = entries.bytes("pushes", count * kUuid);
  const std::string_view dates = entries.bytes("dates", count * 8);
  std::vector<PastState> states;
  for (std::size_t i = 0; i < count; ++i) {
    const auto number = static_cast<std::int64_t>(loadBigEndian(numbers.data() + i * 8, 8));
    const Date date{std::bit_cast<double>(loadBigEndian(dates.data() + i * 8, 8))};
    const std::int64_t most = states.empty() ? kMostNumber : states.back().number - 1;
    if (number < 1 || number > most || !std::isfinite(date.seconds)) fail(Message("a state is out of range"));
    states.push_back({number, uuidIn(pushIds, i * kUuid), date});
  }
  return states;
}

}  // namespace corvane::pelto::chain
