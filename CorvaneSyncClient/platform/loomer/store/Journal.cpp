#include "CorvaneSyncClient/platform/loomer/store/Journal.h"

#include <algorithm>
#include <functional>
#include <new>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/store/Database.h"
#include "CorvaneSyncClient/platform/loomer/store/OldJournal.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane::loomer {

namespace {

constexpr std::int64_t kVersion = 2;
// As now, with an array for each record, and one for each list.
constexpr std::int64_t kVersionOfRows = 1;

constexpr std::int64_t kNotHeld = 1;
constexpr std::int64_t kTabGroup = 2;
constexpr std::int64_t kSpecial = 4;

// Why a property list is no journal.
class NoJournal : public PlatformException {
 public:
  explicit NoJournal(Message reason) : PlatformException("NoJournalException", std::move(reason)) {}
};

// Puts numbers and texts one behind the other: as values of a property list, those of all records would take
// as much memory as the file that the client saves. A number goes in pieces of seven bits, the lowest first
// and each but the last with the eighth one set; its sign is its lowest bit. A text goes behind one more than
// its length, an absent one is 0.
class Packer {
 public:
  // Without a place for the bytes it counts them alone.
  explicit Packer(char* to) : _to(to) {}

  void add(std::int64_t number) {
    auto rest = static_cast<std::uint64_t>(number) << 1 ^ static_cast<std::uint64_t>(number >> 63);
    for (; rest > 0x7F; rest >>= 7) addByte(static_cast<char>(rest | 0x80));
    addByte(static_cast<char>(rest));
  }

  void add(const String& text) {
    const std::string_view view = text.view();
    add(text ? static_cast<std::int64_t>(view.size() + 1) : 0);
    if (_to) std::copy(view.begin(), view.end(), _to + _size);
    _size += view.size();
  }

  void add(const BaseRecord& record) {
    add(record.record);
    add(static_cast<std::int64_t>(record.entity));
    add(record.parent);
    add(std::int64_t{record.position});
    add(record.refusedRevision);
    add((record.notHeld ? kNotHeld : 0) | (record.content.tabGroup ? kTabGroup : 0) |
        (record.content.special ? kSpecial : 0));
    add(record.localId);
    add(record.content.name);
    add(record.content.url);
  }

  std::size_t size() const { return _size; }

 private:
  void addByte(char byte) {
    if (_to) _to[_size] = byte;
    ++_size;
  }

  char* _to;
  std::size_t _size = 0;
};

template <typename Item>
Data packed(const std::vector<Item>& items) {
  Packer counting(nullptr);
  for (const Item& each : items) counting.add(each);
  SharedBytes* const bytes = SharedBytes::makeUninitialized(counting.size());
  Packer packing(bytes->mutableBytes());
  for (const Item& each : items) packing.add(each);
  return Data(bytes);
}

class Unpacker {
 public:
  explicit Unpacker(std::string_view bytes) : _rest(bytes) {}

  bool isAtEnd() const { return _rest.empty(); }

  std::int64_t number() {
    std::uint64_t bits = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      const auto byte = static_cast<unsigned char>(bytes(1).front());
      bits |= std::uint64_t{byte & 0x7FU} << shift;
      if (byte < 0x80) return static_cast<std::int64_t>(bits >> 1 ^ (~(bits & 1) + 1));
    }
    throw NoJournal("a number in it has no end");
  }

  String text() {
    const std::int64_t length = number();
    return length == 0 ? String() : String(bytes(static_cast<std::uint64_t>(length) - 1));
  }

  void take(std::int64_t& item) { item = number(); }
  void take(String& item) { item = text(); }
  void take(BaseRecord& record) {
    record.record = number();
    record.entity = number() == 0 ? Entity::folder : Entity::bookmark;
    record.parent = number();
    record.position = static_cast<std::int32_t>(number());
    record.refusedRevision = number();
    const std::int64_t flags = number();
    record.notHeld = (flags & kNotHeld) != 0;
    record.content.tabGroup = (flags & kTabGroup) != 0;
    record.content.special = (flags & kSpecial) != 0;
    record.localId = text();
    record.content.name = text();
    record.content.url = text();
  }

 private:
  std::string_view bytes(std::uint64_t count) {
    if (count > _rest.size()) throw NoJournal("it is cut short");
    const std::string_view taken = _rest.substr(0, count);
    _rest.remove_prefix(count);
    return taken;
  }

  std::string_view _rest;
};

Dictionary dictionaryOf(const BaseDifference& difference) {
  return Dictionary{{"Held", packed(difference.held)}, {"Gone", packed(difference.gone)}};
}

Dictionary dictionaryOf(const Journal& journal) {
  Dictionary dictionary{{"Version", kVersion},
                        {"PushId", journal.pushId},
                        {"Registered", journal.registered.seconds},
                        {"Sessions", journal.sessions},
                        {"Known", dictionaryOf(journal.known)},
                        {"Delivered", dictionaryOf(journal.delivered)},
                        {"Added", packed(journal.added)}};
  if (journal.syncedRevision) dictionary.set("SyncedRevision", *journal.syncedRevision);
  if (journal.knownPushId) dictionary.set("KnownPushId", journal.knownPushId);
  if (journal.denied.empty()) return dictionary;
  Array denied;
  for (const DeniedDelivery& each : journal.denied)
    denied.append(Dictionary{{"PushId", each.pushId}, {"After", dictionaryOf(each.after)}});
  dictionary.set("Denied", std::move(denied));
  return dictionary;
}

template <typename T>
const T& required(const Value* value, const char* what) {
  const T* const found = value ? value->as<T>() : nullptr;
  if (!found) throw NoJournal(std::string("it has no ") + what);
  return *found;
}

BaseRecord recordOf(const Value& value) {
  const Array& row = required<Array>(&value, "record where one belongs");
  constexpr std::size_t kFields = 9;
  if (row.size() != kFields) throw NoJournal("a record has another number of fields");
  const auto number = [&](std::size_t field) {
    return required<std::int64_t>(&row[field], "number in a record");
  };
  BaseRecord record;
  record.record = number(0);
  record.entity = number(1) == 0 ? Entity::folder : Entity::bookmark;
  record.parent = number(2);
  record.position = static_cast<std::int32_t>(number(3));
  record.refusedRevision = number(4);
  record.notHeld = (number(5) & kNotHeld) != 0;
  record.content.tabGroup = (number(5) & kTabGroup) != 0;
  record.content.special = (number(5) & kSpecial) != 0;
  record.localId = row[6].string();
  record.content.name = row[7].string();
  record.content.url = row[8].string();
  return record;
}

void readItem(const Value& value, BaseRecord& record) { record = recordOf(value); }
void readItem(const Value& value, std::int64_t& record) {
  record = required<std::int64_t>(&value, "number of a record that is gone");
}
void readItem(const Value& value, String& localId) {
  localId = required<String>(&value, "id of an addition");
}

// A packed list, or one of the older version.
template <typename Item>
std::vector<Item> itemsOf(const Value* value, const char* what) {
  std::vector<Item> items;
  if (const Array* const rows = value ? value->as<Array>() : nullptr) {
    for (const Value& each : *rows) readItem(each, items.emplace_back());
    return items;
  }
  Unpacker packed(required<Data>(value, what).bytes());
  while (!packed.isAtEnd()) packed.take(items.emplace_back());
  return items;
}

BaseDifference readDifference(const Value* value) {
  const auto& dictionary = required<Dictionary>(value, "difference between two bases");
  BaseDifference difference{itemsOf<BaseRecord>(dictionary.find("Held"), "records"),
                            itemsOf<RecordId>(dictionary.find("Gone"), "list of records that are gone")};
  const auto& held = difference.held;
  const auto isBehind = [](const BaseRecord& a, const BaseRecord& b) { return a.record >= b.record; };
  if (std::adjacent_find(held.begin(), held.end(), isBehind) != held.end()) {
    throw NoJournal("its records are out of order");
  }
  const auto& gone = difference.gone;
  if (std::adjacent_find(gone.begin(), gone.end(), std::greater_equal<>()) != gone.end()) {
    throw NoJournal("the records that are gone are out of order");
  }
  return difference;
}

std::vector<DeniedDelivery> deniedIn(const Dictionary& journal) {
  std::vector<DeniedDelivery> denied;
  const Value* const values = journal.find("Denied");
  if (!values) return denied;
  for (const Value& each : required<Array>(values, "list of denied deliveries")) {
    const auto& delivery = required<Dictionary>(&each, "delivery where one belongs");
    denied.push_back({required<String>(delivery.find("PushId"), "push id of a denied delivery"),
                      readDifference(delivery.find("After"))});
  }
  return denied;
}

Journal journalOf(const Value& value) {
  const auto& dictionary = required<Dictionary>(&value, "dictionary");
  const std::int64_t version = required<std::int64_t>(dictionary.find("Version"), "version");
  if (version != kVersion && version != kVersionOfRows) throw NoJournal("it is of another version");
  Journal journal;
  journal.pushId = required<String>(dictionary.find("PushId"), "push id");
  journal.registered = Date{required<double>(dictionary.find("Registered"), "date of registration")};
  journal.sessions = required<std::int64_t>(dictionary.find("Sessions"), "number of sessions");
  if (const Value* revision = dictionary.find("SyncedRevision")) {
    journal.syncedRevision = required<std::int64_t>(revision, "number for the revision");
  }
  journal.knownPushId = dictionary.string("KnownPushId");
  journal.known = readDifference(dictionary.find("Known"));
  journal.delivered = readDifference(dictionary.find("Delivered"));
  journal.denied = deniedIn(dictionary);
  journal.added = itemsOf<String>(dictionary.find("Added"), "list of additions");
  return journal;
}

std::string pathBeside(const std::string& storePath, const std::string& name) {
  return storePath.substr(0, storePath.rfind('/') + 1) + name;
}

}  // namespace

JournalFile::JournalFile(const std::string& storePath, std::int64_t client)
    : _path(pathBeside(storePath, "Journal-" + std::to_string(client) + ".plist")),
      _oldPath(pathBeside(storePath, "HandedDown-" + std::to_string(client) + ".db")) {}

std::optional<Journal> JournalFile::read() const {
  std::string bytes;
  const std::error_code error = Platform::current().files.read(_path, bytes);
  if (error == std::errc::no_such_file_or_directory) return readOldJournal(_oldPath);
  std::string problem = error.message();
  if (!error) {
    try {
      return journalOf(readPropertyList(bytes));
    } catch (const PropertyListException& exception) {
      problem = exception.reason();
    } catch (const NoJournal& exception) {
      problem = exception.reason();
    }
  }
  systemLog("The journal %@ cannot be read and is not used: %@", _path, problem);
  return std::nullopt;
}

void JournalFile::write(const Journal& journal) const {
  const Dictionary dictionary = dictionaryOf(journal);
  const PrivateUmask privately;
  if (const std::error_code error = Platform::current().files.writeAtomically(
          _path, [&](const TakeBytes& take) { writeBinaryPropertyList(dictionary, take); })) {
    throw LoomerStoreException(
        _path, Message("cannot write the journal of this session: %1", error.message()),
        Message("Make room and give yourself permission to write there, and sync again."));
  }
}

void JournalFile::remove() const noexcept {
  try {
    static_cast<void>(Platform::current().files.remove(_path));
    removeOldJournal(_oldPath);
  } catch (const std::bad_alloc&) {
    // It stays, which does no harm.
  }
}

}  // namespace corvane::loomer
