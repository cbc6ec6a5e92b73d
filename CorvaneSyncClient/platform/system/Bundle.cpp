#include "CorvaneSyncClient/platform/system/Bundle.h"

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

std::string localized(const std::string& key, const std::string& table) {
  return Platform::current().bundles.ownBundle().localizedString(key, table);
}

}  // namespace corvane
