#include <poll.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerManager.h"
#include "CorvaneSyncClient/platform/loomer/api/ServiceWatch.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/session/SyncService.h"
#include "browsers/BrowserNames.h"
#include "browsers/host/BrowserHost.h"
#include "browsers/host/NativeMessages.h"
#include "browsers/host/ProfileName.h"
#include "browsers/host/StoreWatch.h"

namespace corvane::browsers {

namespace {

constexpr std::chrono::milliseconds kQuiet(1000);

// Chromium names the extension that starts this program by its origin; Firefox by its id, behind the path of
// this program's manifest.
bool isStartedByOwnExtension(int argc, const char* const* argv) {
  const std::string origin = "chrome-extension://" + std::string(kChromiumExtension) + "/";
  return (argc >= 2 && argv[1] == origin) || (argc >= 3 && argv[2] == kFirefoxExtension);
}

// No extension can tell what its profile is called.
ExtensionMessage withProfileName(ExtensionMessage message) {
  auto* const hello = std::get_if<Hello>(&message);
  if (hello && hello->profile.empty()) hello->profile = profileNameIn(hello->browser, openFilesOfParent());
  return message;
}

// Waits for a message, a write to the store or something new at the online service; with `awaitsQuiet` for a
// second at most. Answers whether that has passed without any.
bool waitForNews(ServiceWatch& service, StoreWatch* watch, bool awaitsQuiet) {
  const pollfd files[] = {{STDIN_FILENO, POLLIN, 0}, {watch ? watch->descriptor() : -1, POLLIN, 0}};
  return !service.poll(files, awaitsQuiet ? std::optional(kQuiet) : std::nullopt);
}

// Which file the store is; nothing where there is none.
std::optional<FileIdentity> storeAt(const std::string& path) {
  const auto attributes = Platform::current().files.attributesIfKnown(path);
  return attributes ? std::optional(attributes->identity) : std::nullopt;
}

// Serves the extension until it is gone, or until the store that this process has open is not the user's any
// more: deleted, or put back from a backup. The extension then starts another one.
void serve(BrowserHost& host, NativeMessages& messages) {
  const std::string path = LoomerManager::storePath();
  std::optional<FileIdentity> store;  // that the first session has opened
  bool hasSynced = false;
  std::optional<StoreWatch> watch;
  const auto service = ServiceWatch::watchOfUser();
  bool awaitsQuiet = false;
  while (true) {
    while (auto message = messages.arrived())
      host.take(withProfileName(readExtensionMessage(*std::move(message))));
    if (messages.hasEnded()) return;
    if (host.isOpen() && !watch) watch.emplace(path);
    if (host.wantsSession()) {
      if (hasSynced && (!store || storeAt(path) != store)) return;
      host.sync();
      if (host.hasChangedTruth()) syncFilesSoon();
      if (!std::exchange(hasSynced, true)) store = storeAt(path);
      service->renew();
      continue;
    }
    if (waitForNews(*service, watch ? &*watch : nullptr, awaitsQuiet)) {
      awaitsQuiet = false;
      if (hasSynced) service->renew();
      const bool isReplaced = hasSynced && (!store || storeAt(path) != store);
      if (isReplaced || host.mayHaveNews()) host.storeChanged();
      continue;
    }
    if (service->takeNews()) host.serviceChanged();
    if (watch && watch->wasWritten()) awaitsQuiet = true;
    if (messages.isReadable()) messages.read();
  }
}

int runUntilInputEnds() {
  NativeMessages messages(STDIN_FILENO, STDOUT_FILENO);
  try {
    BrowserHost host(messages);
    try {
      serve(host, messages);
    } catch (const ExtensionGone&) {
      // In the middle of a session, which the next one goes on with.
    }
    host.ended();
    return 0;
  } catch (const PlatformException& exception) {
    systemLog("corvane-browser-host ends: %@", exception.reason());
  } catch (const std::exception& exception) {
    systemLog("corvane-browser-host ends: %@", std::string(exception.what()));
  }
  return 1;
}

}  // namespace

}  // namespace corvane::browsers

// Started by a browser for one of its profiles, and ended by it.
int main(int argc, char** argv) {
  const corvane::PlatformScope services(corvane::linuxPlatform());
  if (!corvane::browsers::isStartedByOwnExtension(argc, argv)) {
    const std::string problem = corvane::tr(
        "corvane-browser-host is started by a browser, for its own extension: corvane-browser-host(1)");
    std::fputs((problem + '\n').c_str(), stderr);
    return 2;
  }
  // The account's key passes through where sessions exchange with the online service. Cannot fail with this
  // argument.
  prctl(PR_SET_DUMPABLE, 0);
  // A browser that is gone is noticed when writing to it fails. Cannot fail for this signal.
  std::signal(SIGPIPE, SIG_IGN);
  return corvane::browsers::runUntilInputEnds();
}
