#include "tools/loomerctl/UserStore.h"

#include <sys/statvfs.h>

#include <filesystem>
#include <system_error>

#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

std::string storePath() { return loomer::storePathForHome(Platform::current().process.homeDirectory()); }

namespace {

// Whether it stands on a file system on which nobody can write, with nothing in a write-ahead log.
bool isUnchanging(const std::string& path) {
  struct statvfs disk;
  if (statvfs(path.c_str(), &disk) != 0 || (disk.f_flag & ST_RDONLY) == 0) return false;
  std::error_code error;
  const std::uintmax_t logged = std::filesystem::file_size(path + "-wal", error);
  return error == std::errc::no_such_file_or_directory || (!error && logged == 0);
}

// Also where there is no room for what others share, so that somebody can see what takes it.
std::unique_ptr<loomer::TruthStore> opened(const std::string& path) {
  using loomer::Access, loomer::TruthStore;
  if (isUnchanging(path)) return std::make_unique<TruthStore>(path, Access::unchanging);
  try {
    return std::make_unique<TruthStore>(path);
  } catch (const loomer::FullDiskException&) {
    return std::make_unique<TruthStore>(path, Access::alone);
  }
}

}  // namespace

std::unique_ptr<loomer::TruthStore> openStoreIfAny() {
  const std::string path = storePath();
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  const bool missing = error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory;
  if (error && !missing) throw Refused{tr("Cannot look at the store %1: %2.", path, error.message())};
  // An empty file is what is left of a store that was never finished.
  if (missing || size == 0) return nullptr;
  return opened(path);
}

std::unique_ptr<loomer::TruthStore> openStore() {
  if (auto store = openStoreIfAny()) return store;
  throw Refused{
      tr("There is no store yet: %1 does not exist. The first sync, or `loomerctl import`, makes it.",
         storePath())};
}

std::unique_ptr<loomer::TruthStore> openStoreToRead() {
  auto store = openStore();
  store->beginReading();
  return store;
}

std::unique_ptr<loomer::TruthStore> openOrMakeStore() {
  return std::make_unique<loomer::TruthStore>(storePath());
}

loomer::ClientState clientNamed(loomer::TruthStore& store, const std::string& identifier) {
  loomer::ClientTable clients(store);
  if (auto client = clients.find(identifier)) return *client;
  std::string known;
  for (const loomer::ClientState& each : clients.all()) {
    known += (known.empty() ? "" : ", ") + each.identifier.toString();
  }
  throw Refused{tr("There is no client \"%1\".", identifier) + ' ' +
                (known.empty() ? tr("None is registered.") : tr("Registered: %1.", known))};
}

}  // namespace corvane::loomerctl
