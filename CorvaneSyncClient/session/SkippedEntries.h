#pragma once

#include <string>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {

/// To be called before the file at `path` is replaced by one that lacks `skipped`, the entries that reading
/// it left out (see BookmarkMap): keeps the file as it is beside the engine's store and says in the system
/// log how many entries go and where the copy is. Does nothing when none are skipped.
///
/// Raises LoomerStoreException, before anything is lost, when no copy can be kept.
void keepFileOfSkippedEntries(const String& clientId, const std::string& path, const Array& skipped);

}  // namespace corvane
