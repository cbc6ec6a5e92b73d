#include "CorvaneSyncClient/platform/pelto/account/DotPeltoSessionProxy.h"

#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"

namespace corvane {

namespace {

// Uses the user's account, which it reads again at each call.
class AccountProxy : public DotPeltoSessionProxy {
 public:
  bool isComputerEnabledForSyncing() override {
    const auto account = pelto::userAccount();
    return account && (account->membership || account->reached);
  }

  bool dataclassIsEnabledForSyncing(const String& dataclass) override {
    const auto account = pelto::userAccount();
    if (!account) return false;
    if (account->membership) return account->membership->enabled.contains(dataclass.toString());
    return pelto::hubOf(*account)->isEnabled(dataclass);
  }

  bool setDataclass(const String& dataclass, bool isEnabledForSyncing, String& error) override {
    const auto account = pelto::userAccount();
    if (!account) {
      error = "No account at the online service is set on this computer. `loomerctl account set` sets one.";
      return false;
    }
    try {
      if (account->membership) {
        pelto::enableDataClass(*account, dataclass, isEnabledForSyncing);
      } else {
        pelto::hubOf(*account)->setEnabled(dataclass, isEnabledForSyncing);
      }
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
