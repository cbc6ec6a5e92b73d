#include "CorvaneSyncClient/session/ClientIdentity.h"

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

std::string bookmarksDirectory() {
  return joinedPath(Platform::current().process.homeDirectory(), "Library/Corvane");
}

std::optional<std::string> fileNameForClientId(const String& clientId) {
  if (clientId == kMainClientId) return "Bookmarks.plist";
  std::string_view name = clientId.view();
  if (!name.starts_with(kMainClientId)) return std::nullopt;
  name.remove_prefix(kMainClientId.size());
  if (!name.starts_with('.')) return std::nullopt;
  return std::string(name.substr(1));
}

std::optional<std::string> ownClientDescription() {
  return Platform::current().bundles.ownBundle().resource("CorvaneClientDescription", "plist");
}

}  // namespace corvane
