#include "CorvaneSyncClient/platform/loomer/store/Journal.h"

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

constexpr std::int64_t kVersion = 1;

constexpr std::int64_t kNotHeld = 1;
constexpr std::int64_t kTabGroup = 2;
constexpr std::int64_t kSpecial = 4;

// Why a property list is no journal.
class NoJournal : public PlatformException {
 public:
  explicit NoJournal(Message reason) : PlatformException("NoJournalException", std::move(reason)) {}
};

Value optionalText(const String& text) { return text ? Value(text) : Value(false); }

// The record's fields in one row. Dictionaries would name each field in every record.
Array rowOf(const BaseRecord& record) {
  const std::int64_t flags = (record.notHeld ? kNotHeld : 0) | (record.content.tabGroup ? kTabGroup : 0) |
                             (record.content.special ? kSpecial : 0);
  return Array{Value(record.record),
               Value(static_cast<std::int64_t>(record.entity)),
               Value(record.parent),
               Value(std::int64_t{record.position}),
               Value(record.refusedRevision),
               Value(flags),
               optionalText(record.localId),
               optionalText(record.content.name),
               optionalText(record.content.url)};
}

Dictionary dictionaryOf(const BaseDifference& difference) {
  Array held, gone;
  for (const BaseRecord& each : difference.held) held.append(rowOf(each));
  for (const RecordId each : difference.gone) gone.append(each);
  return Dictionary{{"Held", held}, {"Gone", gone}};
}

Dictionary dictionaryOf(const Journal& journal) {
  Array added;
  for (const String& each : journal.added) added.append(each);
  Dictionary dictionary{{"Version", kVersion},
                        {"PushId", journal.pushId},
                        {"Registered", journal.registered.seconds},
                        {"Sessions", journal.sessions},
                        {"Known", dictionaryOf(journal.known)},
                        {"Delivered", dictionaryOf(journal.delivered)},
                        {"Added", added}};
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

BaseDifference readDifference(const Value* value) {
  const auto& dictionary = required<Dictionary>(value, "difference between two bases");
  BaseDifference difference;
  for (const Value& each : required<Array>(dictionary.find("Held"), "records")) {
    BaseRecord record = recordOf(each);
    if (!difference.held.empty() && difference.held.back().record >= record.record) {
      throw NoJournal("its records are out of order");
    }
    difference.held.push_back(std::move(record));
  }
  for (const Value& each : required<Array>(dictionary.find("Gone"), "list of records that are gone")) {
    difference.gone.push_back(required<std::int64_t>(&each, "number of a record that is gone"));
    if (difference.gone.size() > 1 && difference.gone.end()[-2] >= difference.gone.back()) {
      throw NoJournal("the records that are gone are out of order");
    }
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
  if (required<std::int64_t>(dictionary.find("Version"), "version") != kVersion) {
    throw NoJournal("it is of another version");
  }
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
  for (const Value& each : required<Array>(dictionary.find("Added"), "list of additions")) {
    journal.added.push_back(required<String>(&each, "id of an addition"));
  }
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
