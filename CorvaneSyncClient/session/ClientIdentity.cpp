#include "CorvaneSyncClient/session/ClientIdentity.h"

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

std::optional<std::string> ownClientDescription() {
  return Platform::current().bundles.ownBundle().resource("CorvaneClientDescription", "plist");
}

}  // namespace corvane
