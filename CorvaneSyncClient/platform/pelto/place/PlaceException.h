#pragma once

#include <string>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

namespace corvane::pelto {

/// A place that could not do what it was asked. The reason says what was tried, where, what came back and
/// what to do; never a secret.
class PlaceException : public PlatformException {
 public:
  explicit PlaceException(Message reason) : PlatformException("PlaceException", std::move(reason)) {}
};

/// There is no more room at the place, or none for this account.
class PlaceFullException : public PlaceException {
 public:
  using PlaceException::PlaceException;
};

/// The place knows this computer no longer, or does not let it do this.
class PlaceRefusedException : public PlaceException {
 public:
  using PlaceException::PlaceException;
};

}  // namespace corvane::pelto
