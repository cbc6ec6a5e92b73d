#pragma once

#include <string>

#include "CorvaneSyncClient/platform/loomer/store/Database.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::loomer {

/// Where the store of the user with this home directory stands.
std::string storePathForHome(const std::string& homeDirectory);

/// The engine's store of one user: one SQLite file that holds the truth, the clients and the logs.
///
/// Opening makes the directory (0700, and those above it) and the file (0600) where they are missing, and
/// brings an older store to the present form. A damaged store, a file that is no store and a newer store are
/// refused with LoomerStoreException and left as they are. Damage beyond the file's head shows only when the
/// damaged part is read; it then ends the operation in the same way.
///
/// Opening is one step under an exclusive lock on a file beside the store ("-lock"), for which it waits a
/// minute at most: who opens it at the same moment finds no store or a whole one. A process that dies loses
/// that lock, and the file stays.
///
/// Writers exclude one another across processes by SQLite's own write lock, which the system takes back from
/// a process that dies. Readers never wait.
class TruthStore {
 public:
  /// Opens the store, making or migrating it where that is needed. Raises LoomerStoreException.
  explicit TruthStore(std::string path);
  /// The same by another access. An unchanging store is neither made nor migrated; what still stands in its
  /// write-ahead log is not seen.
  TruthStore(std::string path, Access access);

  const std::string& path() const { return _database.path(); }
  Database& database() { return _database; }
  /// What it takes up, what is still in its write-ahead log included.
  std::uint64_t bytes();

  /// From now on everything is read as it is at the first read, whatever others write meanwhile.
  void beginReading() { _database.execute("BEGIN", MessageText<1>("cannot begin reading: %1").english()); }

  /// Runs `body`, to which everything is as it is at its first read, whatever others write meanwhile; in the
  /// transaction that is open, if there is one.
  template <typename Body>
  void reading(const Body& body) {
    if (_database.inTransaction()) return body();
    beginReading();
    try {
      body();
    } catch (...) {
      _database.rollback();
      throw;
    }
    _database.rollback();
  }

  /// Takes the lock and starts a transaction. Waits at most `seconds` for another writer, asking again
  /// several times a second by the platform's clock; false when it still writes then.
  bool begin(double seconds);

  /// Runs `body` in the transaction that is open, else in one of its own: committed when `body` returns,
  /// rolled back when it raises. Raises LoomerStoreException when another writer does not end in time.
  template <typename Body>
  void writing(const Body& body) {
    if (_database.inTransaction()) return body();
    beginOrFail();
    try {
      body();
      _database.commit();
    } catch (...) {
      _database.rollback();
      throw;
    }
  }

 private:
  /// Opens the store while `openingLock`, if there is one, keeps others from it.
  TruthStore(std::string path, Access access, const FileDescriptor& openingLock);

  void beginOrFail();
  void useWriteAheadLog();

  Database _database;
};

}  // namespace corvane::loomer
