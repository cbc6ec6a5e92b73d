#pragma once

#include <initializer_list>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

namespace corvane {

/// A shared library, or a function that it should have, is not there. The reason is the loader's.
class MissingLibraryException : public PlatformException {
 public:
  explicit MissingLibraryException(std::string reason)
      : PlatformException(NSObjectNotAvailableException, std::move(reason)) {}
};

/// Where a function lies, for a pointer to it, whose type must be the function's: the header of its library
/// has it, as in `decltype(&uuid_parse)`.
class LoadedFunction {
 public:
  explicit LoadedFunction(void* address) : _address(address) {}
  template <typename Function>
  operator Function*() const {
    return reinterpret_cast<Function*>(_address);
  }

 private:
  void* _address;
};

/// A function of a shared library that most runs need nothing of, under the first of its names that the
/// loader finds. Nothing is linked with such a library, since to load and bind it takes longer than to look
/// at a file in which nothing is new: it is loaded when the first function is asked for, and stays. Raises
/// MissingLibraryException.
LoadedFunction loadedFunction(std::initializer_list<const char*> libraries, const char* name);

}  // namespace corvane
