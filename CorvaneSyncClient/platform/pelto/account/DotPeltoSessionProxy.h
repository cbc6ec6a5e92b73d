#pragma once

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/system/ServiceScope.h"

namespace corvane {

/// The online service's switches for this computer, for the command line. They are settings of this computer:
/// the service is not asked. Every function raises PlatformException when the account's file cannot be read;
/// no message contains a secret.
class DotPeltoSessionProxy {
 public:
  virtual ~DotPeltoSessionProxy() = default;

  /// The proxy that a DotPeltoSessionProxyScope made current, otherwise that of the user's account.
  static DotPeltoSessionProxy& current();

  /// `isComputerEnabledForSyncing`: whether an account is set, which it never is before its place has
  /// answered.
  virtual bool isComputerEnabledForSyncing() = 0;
  /// `dataclassIsEnabledForSyncing:`. False without an account.
  virtual bool dataclassIsEnabledForSyncing(const String& dataclass) = 0;
  /// `setDataclass:isEnabledForSyncing:error:`; false, with a readable `error`, when there is no account or
  /// the account's file cannot be written.
  virtual bool setDataclass(const String& dataclass, bool isEnabledForSyncing, String& error) = 0;
};

/// Makes a proxy current.
using DotPeltoSessionProxyScope = ServiceScope<DotPeltoSessionProxy>;

}  // namespace corvane
