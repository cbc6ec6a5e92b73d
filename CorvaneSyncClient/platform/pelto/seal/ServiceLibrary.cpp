#include "CorvaneSyncClient/platform/pelto/seal/ServiceLibrary.h"

#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::pelto {

LoadedFunction serviceFunction(std::initializer_list<const char*> libraries, const char* name) {
  try {
    return loadedFunction(libraries, name);
  } catch (const MissingLibraryException& exception) {
    throw PlatformException(NSObjectNotAvailableException,
                            tr("Can't load the library for the online service: %1", exception.reason()));
  }
}

}  // namespace corvane::pelto
