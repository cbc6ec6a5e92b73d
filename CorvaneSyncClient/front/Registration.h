#pragma once

#include "CorvaneSyncClient/platform/foundation/String.h"

namespace corvane {

// Registration of clients with the sync engine, and of this computer's bookmarks with the online service.
// Each command answers an exit status: 0 for yes or success, 1 otherwise. PlatformExceptions of the engine
// pass through.

/// Registers the client afresh: what the engine kept for an earlier registration is gone.
int registerSyncClient(const String& clientId);
/// 1 when no such client is registered.
int unregisterSyncClient(const String& clientId);

/// Whether the online service has this computer enabled for syncing.
int canRegister();
/// Whether bookmarks are synced with the online service. A client that the engine does not know is a line in
/// the system log.
int isRegistered();
/// Switches syncing of bookmarks with the online service on.
int registerWithService();
/// Switches it off; leaves the registration with the engine alone.
int unregisterFromService();

}  // namespace corvane
