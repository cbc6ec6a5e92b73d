#include "CorvaneSyncClient/platform/loomer/LoomerManager.h"

#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

namespace {
LoomerManager* currentManager = nullptr;
}

LoomerManager& LoomerManager::sharedManager() {
  if (currentManager) return *currentManager;
  static loomer::EmbeddedManager embedded(
      loomer::storePathForHome(Platform::current().process.homeDirectory()));
  return embedded;
}

LoomerManagerScope::LoomerManagerScope(LoomerManager& manager) : _before(currentManager) {
  currentManager = &manager;
}

LoomerManagerScope::~LoomerManagerScope() { currentManager = _before; }

std::unique_ptr<LoomerSessionDriver> LoomerSessionDriver::sessionDriverWithDataSource(
    LoomerSessionDriverDataSource& dataSource) {
  return LoomerManager::sharedManager().sessionDriverWithDataSource(dataSource);
}

}  // namespace corvane
