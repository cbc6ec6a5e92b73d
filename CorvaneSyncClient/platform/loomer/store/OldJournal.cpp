#include "CorvaneSyncClient/platform/loomer/store/OldJournal.h"

#include <unistd.h>

#include <new>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"

namespace corvane::loomer {

namespace {

constexpr std::int64_t kOldVersion = 1;
constexpr const char* kRead = MessageText<1>("cannot read the journal: %1").english();

// The database itself, SQLite's journal of it, and the one that was being made.
constexpr const char* kSuffixes[] = {"", "-journal", ".new", ".new-journal"};

Journal readSession(Database& database) {
  Statement query =
      database.query("SELECT mark, registered, sessions, synced_revision, known_mark FROM session", kRead);
  if (!query.open().next()) throw DamagedStoreException(database.path(), Message("it names no session"));
  Journal journal;
  journal.pushId = query.text(0);
  journal.registered = Date{query.real(1)};
  journal.sessions = query.integer(2);
  journal.syncedRevision = query.optionalInteger(3);
  journal.knownPushId = query.text(4);
  return journal;
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

std::vector<String> readAdded(Database& database) {
  Statement statement = database.query("SELECT local_id FROM added", kRead);
  std::vector<String> added;
  statement.open();
  while (statement.next()) added.push_back(statement.text(0));
  return added;
}

}  // namespace

std::optional<Journal> readOldJournal(const std::string& path) {
  try {
    if (access(path.c_str(), F_OK) != 0) return std::nullopt;
    Database database(path);
    if (database.integer("PRAGMA user_version", kRead) != kOldVersion) return std::nullopt;
    Journal journal = readSession(database);
    journal.known = readDifference(database, true);
    journal.delivered = readDifference(database, false);
    journal.added = readAdded(database);
    return journal;
  } catch (const PlatformException&) {
    return std::nullopt;
  }
}

void removeOldJournal(const std::string& path) noexcept {
  try {
    for (const char* const suffix : kSuffixes) unlink((path + suffix).c_str());
  } catch (const std::bad_alloc&) {
    // It stays, which does no harm.
  }
}

}  // namespace corvane::loomer
