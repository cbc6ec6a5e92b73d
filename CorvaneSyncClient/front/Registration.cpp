#include "CorvaneSyncClient/front/Registration.h"

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerManager.h"
#include "CorvaneSyncClient/platform/pelto/account/DotPeltoSessionProxy.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"

namespace corvane {

namespace {

// The client of that id; null when it is not registered, or cannot be where `registerIfMissing` asks for
// that. Only then is a missing store made.
LoomerClient* registeredClient(const String& clientId, bool registerIfMissing) {
  LoomerManager* const existing = LoomerManager::sharedManagerOfExistingStore();
  LoomerClient* const client = existing ? existing->clientWithIdentifier(clientId) : nullptr;
  if (client || !registerIfMissing) return client;
  return LoomerManager::sharedManager().registerClientWithIdentifier(clientId,
                                                                     ownClientDescription().value_or(""));
}

bool mainClientIsRegistered(bool registerIfMissing) {
  if (registeredClient(String(kMainClientId), registerIfMissing)) return true;
  systemLog("Corvane Sync Client is not registered");
  return false;
}

// Switches bookmarks at the online service on or off. `enabling` is the word for it in messages.
bool switchBookmarks(bool enabled, const char* enabling) {
  String error;
  try {
    if (DotPeltoSessionProxy::current().setDataclass(LoomerDataClass_Bookmarks, enabled, error)) return true;
    systemLog("Error %@ bookmarks with .Pelto: %@", enabling, error);
  } catch (const PlatformException& exception) {
    systemLog("Error %@ data class with .Pelto: %@", enabling, exception.reason());
  }
  return false;
}

}  // namespace

bool registerSyncClient(const String& clientId) {
  unregisterSyncClient(clientId);
  return registeredClient(clientId, true) != nullptr;
}

bool unregisterSyncClient(const String& clientId) {
  LoomerClient* client = registeredClient(clientId, false);
  if (!client) return false;
  LoomerManager::sharedManager().unregisterClient(*client);
  return true;
}

bool canRegister() { return DotPeltoSessionProxy::current().isComputerEnabledForSyncing(); }

bool isRegistered() {
  if (!mainClientIsRegistered(false)) return false;
  try {
    return DotPeltoSessionProxy::current().dataclassIsEnabledForSyncing(LoomerDataClass_Bookmarks);
  } catch (const PlatformException& exception) {
    systemLog("Error checking if bookmarks data class is enabled with .Pelto: %@", exception.reason());
    return false;
  }
}

bool registerWithService() {
  if (!DotPeltoSessionProxy::current().isComputerEnabledForSyncing()) return false;
  if (!mainClientIsRegistered(true)) return false;
  return switchBookmarks(true, "enabling");
}

// Asks neither whether the computer is enabled nor for the client: what is on can always be switched off.
bool unregisterFromService() { return switchBookmarks(false, "disabling"); }

}  // namespace corvane
