#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/Migrations.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

namespace {

constexpr double kPollSeconds = 0.1;
// Registering and storing values outside a session: as long as a session may wait for another one.
constexpr double kWriteTimeoutSeconds = 60.0;
constexpr mode_t kDirectoryMode = 0700;
constexpr mode_t kFileMode = 0600;

[[noreturn]] void failWith(const std::string& path, const std::string& operation, int error) {
  throw storeException(path, "cannot " + operation + ": " + std::system_category().message(error),
                       "Give yourself permission to read and write there, and sync again.");
}

void makeDirectories(const std::string& store, const std::string& directory) {
  std::vector<std::string> missing;
  std::string path = directory;
  struct stat status;
  while (path.size() > 1 && stat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) failWith(store, "look at its directory " + path, errno);
    missing.push_back(path);
    path.erase(std::max<std::size_t>(path.rfind('/'), 1));
  }
  for (auto each = missing.rbegin(); each != missing.rend(); ++each) {
    // Another process may make it at the same time.
    if (mkdir(each->c_str(), kDirectoryMode) != 0 && errno != EEXIST) {
      failWith(store, "make its directory " + *each, errno);
    }
  }
}

void narrowMode(const std::string& store, const std::string& path, mode_t mode) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) failWith(store, "look at " + path, errno);
  if ((status.st_mode & 07777) != mode && chmod(path.c_str(), mode) != 0) {
    failWith(store, "close " + path + " to other users", errno);
  }
}

/// A side file may be gone at any time: the last process that closes the store removes both.
void narrowSideFile(const std::string& store, const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return;
    failWith(store, "look at " + path, errno);
  }
  if ((status.st_mode & 07777) == kFileMode || chmod(path.c_str(), kFileMode) == 0 || errno == ENOENT) return;
  failWith(store, "close " + path + " to other users", errno);
}

/// Makes the file before SQLite sees it, so that it never stands open to others; SQLite gives its side files
/// the same mode, but leaves those that stand there already as they are. An existing file is not opened here:
/// closing it again would drop the locks that this process holds on it.
void prepareFile(const std::string& path) {
  const std::string directory = path.substr(0, path.rfind('/'));
  makeDirectories(path, directory);
  narrowMode(path, directory, kDirectoryMode);
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode);
  if (file >= 0) {
    close(file);  // nothing was written that closing could lose
  } else if (errno != EEXIST) {
    failWith(path, "create it", errno);
  }
  narrowMode(path, path, kFileMode);
  for (const char* suffix : {"-wal", "-shm"}) narrowSideFile(path, path + suffix);
}

std::string prepared(std::string path) {
  prepareFile(path);
  return path;
}

}  // namespace

TruthStore::TruthStore(std::string path) : _database(prepared(std::move(path))) {
  refuseUnusableStore(_database, storeMigrations());
  useWriteAheadLog();
  _database.execute(
      "PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON; PRAGMA cell_size_check = ON; PRAGMA "
      "trusted_schema = OFF;"
      "PRAGMA temp_store = MEMORY; PRAGMA cache_size = -32768; PRAGMA journal_size_limit = 4194304;",
      "prepare the connection");
  if (_database.integer("PRAGMA user_version", "read its version") <
      static_cast<std::int64_t>(storeMigrations().size())) {
    write([this] { migrate(_database, storeMigrations()); });
  }
}

bool TruthStore::begin(double seconds) {
  Clock& clock = Platform::current().clock;
  double waited = 0.0;
  while (!_database.tryBegin()) {
    if (!(waited < seconds)) return false;
    const double step = std::min(kPollSeconds, seconds - waited);
    clock.sleep(step);
    waited += step;
  }
  return true;
}

void TruthStore::beginOrFail() {
  if (begin(kWriteTimeoutSeconds)) return;
  throw storeException(path(), "another sync session has been using it for more than a minute",
                       "Wait until that session has ended and try again.");
}

void TruthStore::useWriteAheadLog() {
  Statement statement = _database.query("PRAGMA journal_mode = WAL", "switch on its write-ahead log");
  if (!statement.open().next() || statement.text(0) != "wal") {
    throw storeException(path(), "its file system does not support write-ahead logging",
                         "Keep the home directory on a local disk.");
  }
}

}  // namespace corvane::loomer
