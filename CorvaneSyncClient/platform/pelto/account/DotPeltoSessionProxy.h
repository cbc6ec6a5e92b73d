#pragma once

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/system/ServiceScope.h"

namespace corvane {

/// The online service's switches for this computer, for the command line. For an account at a place they are
/// settings of this computer, and the place is not asked. Every function raises PlatformException when the
/// account's file cannot be read; no message contains a password.
class DotPeltoSessionProxy {
 public:
  virtual ~DotPeltoSessionProxy() = default;

  /// The proxy that a DotPeltoSessionProxyScope made current, otherwise that of the user's account.
  static DotPeltoSessionProxy& current();

  /// `isComputerEnabledForSyncing`: whether an account is set, and the service has ever answered this
  /// computer, without which an account at a place is not set at all. Does not contact the service.
  virtual bool isComputerEnabledForSyncing() = 0;
  /// `dataclassIsEnabledForSyncing:`. False without an account. Raises PlatformException when the service
  /// does not answer.
  virtual bool dataclassIsEnabledForSyncing(const String& dataclass) = 0;
  /// `setDataclass:isEnabledForSyncing:error:`; false, with a readable `error`, when there is no account or
  /// the service did not accept the change.
  virtual bool setDataclass(const String& dataclass, bool isEnabledForSyncing, String& error) = 0;
};

/// Makes a proxy current.
using DotPeltoSessionProxyScope = ServiceScope<DotPeltoSessionProxy>;

}  // namespace corvane
