#include "CorvaneSyncClient/platform/pelto/seal/ServiceLibrary.h"

#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane::pelto {

LoadedFunction serviceFunction(std::initializer_list<const char*> libraries, const char* name) {
  try {
    return loadedFunction(libraries, name);
  } catch (const MissingLibraryException& exception) {
    throw PlatformException(
        NSObjectNotAvailableException,
        Message("Can't load the library for the online service: %1", exception.message()));
  }
}

}  // namespace corvane::pelto
