#pragma once

#include "CorvaneSyncClient/platform/foundation/String.h"

namespace corvane {

// Registration of clients with the sync engine, and of this computer's bookmarks with the online service.
// Each command answers an exit status: 0 for yes or success, 1 otherwise. PlatformExceptions of the engine,
// and of the question whether this computer is enabled, pass through; what the service answers otherwise than
// with yes is a line in the system log.

/// Registers the client afresh: what the engine kept for an earlier registration is gone.
int registerSyncClient(const String& clientId);
/// 1 when no such client is registered.
int unregisterSyncClient(const String& clientId);

/// Whether the online service has this computer enabled for syncing.
int canRegister();
/// Whether bookmarks are synced with the online service. The service is not asked when the engine does not
/// know the main client, which the system log tells.
int isRegistered();
/// Switches syncing of bookmarks with the online service on, and registers the main client with the engine
/// where it is not yet. Neither happens, without a word, on a computer that is not enabled.
int registerWithService();
/// Switches it off, whatever the computer is enabled for; leaves the registration with the engine alone.
int unregisterFromService();

}  // namespace corvane
