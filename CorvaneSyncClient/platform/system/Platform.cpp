#include "CorvaneSyncClient/platform/system/Platform.h"

#include <cstdio>
#include <cstdlib>

namespace corvane {

Platform& Platform::current() {
  Platform* const platform = currentService<Platform>;
  if (!platform) {
    std::fputs("corvanetool: no platform is current\n", stderr);
    std::abort();
  }
  return *platform;
}

void writeToSystemLog(std::string_view message) {
  Platform::current().log.write(SystemLog::Kind::message, message);
}

std::string localized(const std::string& key, const std::string& table) {
  return Platform::current().bundles.ownBundle().localizedString(key, table);
}

}  // namespace corvane
