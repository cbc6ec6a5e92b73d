#include "CorvaneSyncClient/front/Registration.h"

#include "CorvaneSyncClient/platform/loomer/LoomerManager.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"

namespace corvane {

namespace {

// The client of that id; null when it is not registered, or cannot be where `registerIfMissing` asks for
// that.
LoomerClient* registeredClient(const String& clientId, bool registerIfMissing) {
  LoomerManager& manager = LoomerManager::sharedManager();
  LoomerClient* client = manager.clientWithIdentifier(clientId);
  if (client || !registerIfMissing) return client;
  return manager.registerClientWithIdentifier(clientId, ownClientDescription().value_or(""));
}

}  // namespace

int registerSyncClient(const String& clientId) {
  unregisterSyncClient(clientId);
  return registeredClient(clientId, true) ? 0 : 1;
}

int unregisterSyncClient(const String& clientId) {
  LoomerClient* client = registeredClient(clientId, false);
  if (!client) return 1;
  LoomerManager::sharedManager().unregisterClient(*client);
  return 0;
}

// A computer without an account at the online service is enabled for nothing there.

int canRegister() { return 1; }

int isRegistered() {
  if (!registeredClient(String(kMainClientId), false)) systemLog("Corvane Sync Client is not registered");
  return 1;
}

int registerWithService() { return 1; }

int unregisterFromService() { return 1; }

}  // namespace corvane
