#include "CorvaneSyncClient/platform/pelto/account/DotPeltoSessionProxy.h"

#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"

namespace corvane {

namespace {

// Uses the user's account, which it reads again at each call.
class AccountProxy : public DotPeltoSessionProxy {
 public:
  bool isComputerEnabledForSyncing() override { return pelto::userAccount().has_value(); }

  bool dataclassIsEnabledForSyncing(const String& dataclass) override {
    const auto account = pelto::userAccount();
    return account && account->membership.enabled.contains(dataclass.toString());
  }

  bool setDataclass(const String& dataclass, bool isEnabledForSyncing, String& error) override {
    const auto account = pelto::userAccount();
    if (!account) {
      error = "No account at the online service is set on this computer. `loomerctl account set` sets one.";
      return false;
    }
    try {
      pelto::enableDataClass(*account, dataclass, isEnabledForSyncing);
      return true;
    } catch (const PlatformException& exception) {
      error = exception.reason();
      return false;
    }
  }
};

}  // namespace

DotPeltoSessionProxy& DotPeltoSessionProxy::current() {
  static AccountProxy proxy;
  return currentService<DotPeltoSessionProxy> ? *currentService<DotPeltoSessionProxy> : proxy;
}

}  // namespace corvane
