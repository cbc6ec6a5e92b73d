#include "CorvaneSyncClient/platform/loomer/store/HandedDownFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>
#include <system_error>

#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::loomer {

namespace {

constexpr std::int64_t kVersion = 1;
constexpr const char* kRead = "read what was handed down";
constexpr const char* kWrite = "note what is handed down";

// The last step makes the file one to be read.
constexpr const char* kForm = R"sql(
  CREATE TABLE session(mark TEXT NOT NULL, registered REAL NOT NULL, sessions INTEGER NOT NULL,
    synced_revision INTEGER, known_mark TEXT);
  CREATE TABLE held(
    known INTEGER NOT NULL,   -- of which difference: 1 the one that was known before, 0 the one handed down
    record INTEGER NOT NULL,
    local_id TEXT,
    entity INTEGER NOT NULL,
    parent INTEGER NOT NULL,
    position INTEGER NOT NULL,
    refused_revision INTEGER NOT NULL,
    not_held INTEGER NOT NULL,
    name TEXT,
    url TEXT,
    tab_group INTEGER NOT NULL,
    special INTEGER NOT NULL,
    PRIMARY KEY (known, record)
  ) WITHOUT ROWID;
  CREATE TABLE added(local_id TEXT PRIMARY KEY) WITHOUT ROWID;
  CREATE TABLE gone(known INTEGER NOT NULL, record INTEGER NOT NULL, PRIMARY KEY (known, record)) WITHOUT ROWID;
  PRAGMA user_version = 1;
)sql";

// The one that is there stands until another is whole.
constexpr const char* kFreshSuffix = ".new";

[[noreturn]] void failWith(const std::string& path, const std::string& operation) {
  throw LoomerStoreException(path, "cannot " + operation + ": " + std::system_category().message(errno),
                             "Give yourself permission to write there, and sync again.");
}

/// What is not there or cannot be removed shows when it is written anew.
void removeDatabase(const std::string& path) {
  unlink(path.c_str());
  unlink((path + "-journal").c_str());
}

void createEmpty(const std::string& path) {
  const FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (!file) failWith(path, "create it");
}

void makeDurable(const std::string& directory) {
  const FileDescriptor opened(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened || fsync(opened.number()) != 0) failWith(directory, "make it durable");
}

void writeSession(Database& database, const HandedDown& handedDown) {
  database.query("INSERT INTO session VALUES(?, ?, ?, ?, ?)", kWrite)
      .run(handedDown.mark, handedDown.registered.seconds, handedDown.sessions, handedDown.syncedRevision,
           handedDown.knownMark);
}

void writeDifference(Database& database, bool known, const BaseDifference& difference) {
  Statement held = database.query("INSERT INTO held VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)", kWrite);
  for (const BaseRecord& each : difference.held) {
    held.run(known, each.record, each.localId, static_cast<std::int64_t>(each.entity), each.parent,
             std::int64_t{each.position}, each.refusedRevision, each.notHeld, each.content.name,
             each.content.url, each.content.tabGroup, each.content.special);
  }
  Statement gone = database.query("INSERT INTO gone VALUES(?, ?)", kWrite);
  for (const RecordId record : difference.gone) gone.run(known, record);
}

HandedDown readSession(Database& database) {
  Statement query =
      database.query("SELECT mark, registered, sessions, synced_revision, known_mark FROM session", kRead);
  HandedDown handedDown;
  if (!query.open().next()) throw DamagedStoreException(database.path(), "it names no session");
  handedDown.mark = query.text(0);
  handedDown.registered = Date{query.real(1)};
  handedDown.sessions = query.integer(2);
  handedDown.syncedRevision = query.optionalInteger(3);
  handedDown.knownMark = query.text(4);
  return handedDown;
}

void writeAdded(Database& database, const std::vector<String>& added) {
  Statement statement = database.query("INSERT INTO added VALUES(?)", kWrite);
  for (const String& localId : added) statement.run(localId);
}

void fill(const std::string& path, const HandedDown& handedDown) {
  Database database(path);
  // Durable at the commit, but for the name, which changes afterwards.
  database.execute("PRAGMA synchronous = FULL; BEGIN IMMEDIATE", kWrite);
  database.execute(kForm, kWrite);
  writeSession(database, handedDown);
  writeDifference(database, true, handedDown.known);
  writeDifference(database, false, handedDown.handed);
  writeAdded(database, handedDown.added);
  database.commit();
}

std::vector<String> readAdded(Database& database) {
  Statement statement = database.query("SELECT local_id FROM added", kRead);
  std::vector<String> added;
  statement.open();
  while (statement.next()) added.push_back(statement.text(0));
  return added;
}

BaseDifference readDifference(Database& database, bool known) {
  BaseDifference difference;
  Statement held = database.query(
      "SELECT record, local_id, entity, parent, position, refused_revision, not_held, name, url, tab_group,"
      " special FROM held WHERE known = ? ORDER BY record",
      kRead);
  held.open(known);
  while (held.next()) difference.held.push_back(baseRecordOf(held));
  Statement gone = database.query("SELECT record FROM gone WHERE known = ? ORDER BY record", kRead);
  gone.open(known);
  while (gone.next()) difference.gone.push_back(gone.integer(0));
  return difference;
}

}  // namespace

HandedDownFile::HandedDownFile(const std::string& storePath, std::int64_t client)
    : _path(storePath.substr(0, storePath.rfind('/') + 1) + "HandedDown-" + std::to_string(client) + ".db") {}

std::optional<HandedDown> HandedDownFile::read() const {
  try {
    if (access(_path.c_str(), F_OK) != 0) return std::nullopt;
    Database database(_path);
    if (database.integer("PRAGMA user_version", kRead) != kVersion) return std::nullopt;
    HandedDown handedDown = readSession(database);
    handedDown.known = readDifference(database, true);
    handedDown.handed = readDifference(database, false);
    handedDown.added = readAdded(database);
    return handedDown;
  } catch (const PlatformException&) {
    return std::nullopt;
  }
}

void HandedDownFile::write(const HandedDown& handedDown) const {
  const std::string fresh = _path + kFreshSuffix;
  removeDatabase(fresh);
  createEmpty(fresh);
  fill(fresh, handedDown);
  if (std::rename(fresh.c_str(), _path.c_str()) != 0) failWith(_path, "put it in its place");
  makeDurable(_path.substr(0, _path.rfind('/')));
}

void HandedDownFile::remove() const noexcept {
  try {
    removeDatabase(_path);
    removeDatabase(_path + kFreshSuffix);
  } catch (const std::bad_alloc&) {
    // It stays, which does no harm.
  }
}

}  // namespace corvane::loomer
