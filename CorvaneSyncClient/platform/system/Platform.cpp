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

}  // namespace corvane
