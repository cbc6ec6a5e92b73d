#pragma once

#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane {

// Registration of clients with the sync engine, and of this computer's bookmarks with the online service.
// Each command answers whether it succeeded, or what it was asked. PlatformExceptions of the engine, and of
// the question whether this computer is enabled, pass through; a service that refuses or fails is a line in
// the system log.

/// Registers the client afresh: what the engine kept for an earlier registration is gone.
bool registerSyncClient(const String& clientId);
/// False when no such client is registered.
bool unregisterSyncClient(const String& clientId);

/// Whether the online service has this computer enabled for syncing.
bool canRegister();
/// Whether bookmarks are synced with the online service. The service is not asked when the engine does not
/// know the main client, which is a line in the system log.
bool isRegistered();
/// Switches syncing of bookmarks with the online service on, and registers the main client with the engine
/// where it is not yet. Neither happens, without a word, on a computer that is not enabled.
bool registerWithService();
/// Switches it off, whatever the computer is enabled for; leaves the registration with the engine alone.
bool unregisterFromService();

}  // namespace corvane
