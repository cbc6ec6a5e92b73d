#include "CorvaneSyncClient/platform/loomer/api/LoomerManager.h"

#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"
#include "CorvaneSyncClient/platform/loomer/api/ServiceWatch.h"
#include "CorvaneSyncClient/platform/pelto/account/AccountWatch.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

namespace {

std::unique_ptr<pelto::Hub> hubOfUser() {
  const auto account = pelto::userAccount();
  return account ? pelto::hubOf(*account) : nullptr;
}

std::unique_ptr<LoomerManager> managerOfUser() {
  auto manager = std::make_unique<loomer::EmbeddedManager>(LoomerManager::storePath());
  manager->useHub(hubOfUser);
  return manager;
}

class WatchOfUser : public ServiceWatch {
 public:
  bool poll(std::span<const pollfd> files, std::optional<std::chrono::milliseconds> atMost) override {
    return _watch.poll(files, atMost);
  }
  bool takeNews() override { return _watch.takeNews(); }
  void renew() override { _watch.renew(); }

 private:
  pelto::AccountWatch _watch;
};

}  // namespace

std::unique_ptr<ServiceWatch> ServiceWatch::watchOfUser() { return std::make_unique<WatchOfUser>(); }

LoomerManager& LoomerManager::sharedManager() {
  if (currentService<LoomerManager>) return *currentService<LoomerManager>;
  static const std::unique_ptr<LoomerManager> manager = managerOfUser();
  return *manager;
}

LoomerManager* LoomerManager::sharedManagerOfExistingStore() {
  std::error_code error;
  const bool isMissing = !currentService<LoomerManager> &&
                         !Platform::current().files.attributes(storePath(), error) &&
                         error == std::errc::no_such_file_or_directory;
  return isMissing ? nullptr : &sharedManager();
}

std::string LoomerManager::storePath() {
  return loomer::storePathForHome(Platform::current().process.homeDirectory());
}

std::unique_ptr<LoomerSessionDriver> LoomerSessionDriver::sessionDriverWithDataSource(
    LoomerSessionDriverDataSource& dataSource) {
  return LoomerManager::sharedManager().sessionDriverWithDataSource(dataSource);
}

}  // namespace corvane
