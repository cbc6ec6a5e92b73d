#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/loomer/store/Migrations.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane::loomer {

namespace {

constexpr const char* kPrepareConnection = MessageText<1>("cannot prepare the connection: %1").english();
constexpr const char* kSwitchOnWriteAheadLog =
    MessageText<1>("cannot switch on its write-ahead log: %1").english();

// Twice SQLite's own size: each page costs calls of its own on its way through the log into the file. A store
// that is there keeps what it has.
constexpr const char* kPagesOfNewStore = "PRAGMA page_size = 8192";
constexpr double kPollSeconds = 0.1;
// Registering and storing values outside a session: as long as a session may wait for another one.
constexpr double kWriteTimeoutSeconds = 60.0;
// Who brings the store to its present form may have to wait for a session that long.
constexpr double kOpenTimeoutSeconds = 60.0;

// Asks `done` several times a second, by the platform's clock, for at most `seconds`; its last answer.
template <typename Condition>
bool waitUntil(const Condition& done, double seconds) {
  Clock& clock = Platform::current().clock;
  double waited = 0.0;
  while (!done()) {
    if (!(waited < seconds)) return false;
    const double step = std::min(kPollSeconds, seconds - waited);
    clock.sleep(step);
    waited += step;
  }
  return true;
}

Message remedyAfter(std::error_code error) {
  if (error == std::errc::no_space_on_device || error.value() == EDQUOT)
    return Message("Make room on the disk and sync again.");
  if (error == std::errc::read_only_file_system)
    return Message("Make the file system writable and sync again.");
  return Message("Give yourself permission to read and write there, and sync again.");
}

// `what` failed, a clause that names the cause.
[[noreturn]] void failWith(const std::string& path, const Message& what, std::error_code error) {
  throw LoomerStoreException(path, what, remedyAfter(error));
}

// A side file may be gone at any time: the last process that closes the store removes both.
void narrowSideFile(const std::string& store, const std::string& path) {
  const PrivateFileError problem = setMode(path, kPrivateFileMode);
  if (problem && problem.error != std::errc::no_such_file_or_directory)
    failWith(store, Message("cannot close %1 to other users: %2", path, problem.error.message()),
             problem.error);
}

// SQLite's own locks do not make opening one step: its busy handler does not cover the switch to the
// write-ahead log, and between the file's making and its first commit another process finds neither nothing
// nor a store. The lock is on a file of its own, since closing any descriptor of the store itself would drop
// SQLite's locks on it.
FileDescriptor lockForOpening(const std::string& path) {
  if (const PrivateFileError problem = makePrivateDirectory(path.substr(0, path.rfind('/'))))
    failWith(
        path,
        Message("cannot make %1 a directory of the user's own: %2", problem.path, problem.error.message()),
        problem.error);
  const std::string lockPath = path + "-lock";
  FileDescriptor file(open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kPrivateFileMode));
  const std::error_code error = lastSystemError();
  if (!file) failWith(path, Message("cannot open %1: %2", lockPath, error.message()), error);
  const auto isLocked = [&] {
    if (flock(file.number(), LOCK_EX | LOCK_NB) == 0) return true;
    const std::error_code cause = lastSystemError();
    if (cause.value() != EWOULDBLOCK)
      failWith(path, Message("cannot lock %1: %2", lockPath, cause.message()), cause);
    return false;
  };
  if (waitUntil(isLocked, kOpenTimeoutSeconds)) return file;
  throw LoomerStoreException(path, Message("another process has been opening it for more than a minute"),
                             Message("Wait until that process has ended and try again."));
}

// Makes the file before SQLite sees it, so that it never stands open to others; SQLite gives its side files
// the same mode, but leaves those that stand there already as they are. An existing file is not opened here:
// closing it again would drop the locks that this process holds on it.
std::string prepared(std::string path) {
  const FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kPrivateFileMode));
  const std::error_code error = lastSystemError();
  if (!file && error.value() != EEXIST)
    failWith(path, Message("cannot create it: %1", error.message()), error);
  if (const PrivateFileError problem = setMode(path, kPrivateFileMode))
    failWith(path, Message("cannot close it to other users: %1", problem.error.message()), problem.error);
  for (const char* suffix : {"-wal", "-shm"}) narrowSideFile(path, path + suffix);
  return path;
}

}  // namespace

std::string storePathForHome(const std::string& homeDirectory) {
  return joinedPath(homeDirectory, "Library/Application Support/Loomer/Truth.db");
}

// The lock ends with the full expression: once the store is open.
TruthStore::TruthStore(std::string path) : TruthStore(std::move(path), Access::shared) {}

TruthStore::TruthStore(std::string path, Access access)
    : TruthStore(path, access, access == Access::unchanging ? FileDescriptor() : lockForOpening(path)) {}

TruthStore::TruthStore(std::string path, Access access, const FileDescriptor& /*openingLock*/)
    : _database(access == Access::unchanging ? std::move(path) : prepared(std::move(path)), access) {
  refuseUnusableStore(_database, storeMigrations());
  if (access != Access::unchanging) {
    _database.execute(kPagesOfNewStore, kPrepareConnection);
    useWriteAheadLog();
  }
  _database.execute(
      "PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON; PRAGMA cell_size_check = ON;"
      "PRAGMA trusted_schema = OFF; PRAGMA temp_store = MEMORY; PRAGMA cache_size = -8192;"
      "PRAGMA journal_size_limit = 4194304;",
      kPrepareConnection);
  if (_database.integer("PRAGMA user_version", kReadVersion) <
      static_cast<std::int64_t>(storeMigrations().size())) {
    writing([this] { migrate(_database, storeMigrations()); });
  }
}

std::uint64_t TruthStore::bytes() {
  constexpr const char* kReadSize = MessageText<1>("cannot read its size: %1").english();
  const auto pages = static_cast<std::uint64_t>(_database.integer("PRAGMA page_count", kReadSize));
  return pages * static_cast<std::uint64_t>(_database.integer("PRAGMA page_size", kReadSize));
}

bool TruthStore::begin(double seconds) {
  return waitUntil([this] { return _database.tryBegin(); }, seconds);
}

void TruthStore::beginOrFail() {
  if (begin(kWriteTimeoutSeconds)) return;
  throw LoomerStoreException(path(), Message("another sync session has been using it for more than a minute"),
                             Message("Wait until that session has ended and try again."));
}

void TruthStore::useWriteAheadLog() {
  Statement statement = _database.query("PRAGMA journal_mode = WAL", kSwitchOnWriteAheadLog);
  if (!statement.open().next() || statement.text(0) != "wal") {
    throw LoomerStoreException(path(), Message("its file system does not support write-ahead logging"),
                               Message("Keep the home directory on a local disk."));
  }
}

}  // namespace corvane::loomer
