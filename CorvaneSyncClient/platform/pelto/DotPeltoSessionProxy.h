#pragma once

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/system/ServiceScope.h"

namespace corvane {

/// The online service's switches for this computer, as the command line meets them. Everything raises
/// PlatformException where the account's file cannot be read; no message holds a password.
class DotPeltoSessionProxy {
 public:
  virtual ~DotPeltoSessionProxy() = default;

  /// The current proxy: the one that a DotPeltoSessionProxyScope made current, else that of the user's
  /// account.
  static DotPeltoSessionProxy& current();

  /// `isComputerEnabledForSyncing`: an account is set, and the service has answered this computer once. The
  /// service is not asked.
  virtual bool isComputerEnabledForSyncing() = 0;
  /// `dataclassIsEnabledForSyncing:`. False without an account. Raises PlatformException when the service
  /// does not answer.
  virtual bool dataclassIsEnabledForSyncing(const String& dataclass) = 0;
  /// `setDataclass:isEnabledForSyncing:error:`; false with `error` set, a text for people, when there is no
  /// account or the service did not take it.
  virtual bool setDataclass(const String& dataclass, bool isEnabledForSyncing, String& error) = 0;
};

/// Makes a proxy current.
using DotPeltoSessionProxyScope = ServiceScope<DotPeltoSessionProxy>;

}  // namespace corvane
