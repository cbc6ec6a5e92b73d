#pragma once

#include <initializer_list>

#include "CorvaneSyncClient/platform/foundation/LoadedLibrary.h"

namespace corvane::pelto {

/// As `loadedFunction`, of a library that an account alone needs: one that is missing is told to the user as
/// a PlatformException.
LoadedFunction serviceFunction(std::initializer_list<const char*> libraries, const char* name);

}  // namespace corvane::pelto
