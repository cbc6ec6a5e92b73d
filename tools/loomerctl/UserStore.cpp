#include "tools/loomerctl/UserStore.h"

#include <filesystem>
#include <system_error>

#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

std::string storePath() { return loomer::storePathForHome(Platform::current().process.homeDirectory()); }

std::unique_ptr<loomer::TruthStore> openStoreIfAny() {
  const std::string path = storePath();
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  const bool missing = error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory;
  if (error && !missing) throw Refused{tr("Cannot look at the store %1: %2.", path, error.message())};
  // An empty file is what is left of a store that was never finished.
  if (missing || size == 0) return nullptr;
  return std::make_unique<loomer::TruthStore>(path);
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
