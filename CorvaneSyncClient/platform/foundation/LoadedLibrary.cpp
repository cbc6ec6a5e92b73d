#include "CorvaneSyncClient/platform/foundation/LoadedLibrary.h"

#include <dlfcn.h>

namespace corvane {

namespace {

// Once more of one that is loaded only looks it up.
void* loadedLibrary(std::initializer_list<const char*> names) {
  for (const char* const name : names) {
    if (void* const library = dlopen(name, RTLD_NOW | RTLD_LOCAL)) return library;
  }
  throw MissingLibraryException(dlerror());
}

}  // namespace

LoadedFunction loadedFunction(std::initializer_list<const char*> libraries, const char* name) {
  if (void* const function = dlsym(loadedLibrary(libraries), name)) return LoadedFunction(function);
  throw MissingLibraryException(dlerror());
}

}  // namespace corvane
