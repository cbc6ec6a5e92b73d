#include "CorvaneSyncClient/platform/system/Platform.h"

#include <cstdio>
#include <cstdlib>

namespace corvane {

namespace {
Platform* currentPlatform = nullptr;
}

Platform& Platform::current() {
  if (!currentPlatform) {
    std::fputs("corvanetool: no platform is current\n", stderr);
    std::abort();
  }
  return *currentPlatform;
}

PlatformScope::PlatformScope(Platform& platform) : _before(currentPlatform) { currentPlatform = &platform; }
PlatformScope::~PlatformScope() { currentPlatform = _before; }

void writeToSystemLog(std::string_view message) {
  Platform::current().log.write(SystemLog::Kind::message, message);
}

}  // namespace corvane
