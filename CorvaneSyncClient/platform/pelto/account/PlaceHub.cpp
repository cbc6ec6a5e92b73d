#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"

#include <algorithm>
#include <utility>

#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::pelto {

namespace {

using chain::Link;

Sealer sealerOf(const Account& account) {
  const Membership& membership = *account.membership;
  return {*membership.key, membership.account, membership.generation};
}

std::vector<Link> keptPath(const Account& account) {
  return chain::KeptFile(userChainPath(), sealerOf(account).folder()).read().kept.path;
}

CommitMark markOf(const Link& link) { return {link.number, link.hash.substr(0, CommitMark::kHashBytes)}; }

// A chain that begins later, at a checkpoint, has come a longer way than the mark tells.
bool continues(const std::vector<Link>& path, const CommitMark& mark) {
  if (mark.number == 0) return true;
  if (path.empty() || path.back().number < mark.number) return false;
  const auto at =
      std::find_if(path.begin(), path.end(), [&](const Link& each) { return each.number == mark.number; });
  return at == path.end() || markOf(*at) == mark;
}

// The switches, in the account's file.
class AccountSetting : public EnabledSetting {
 public:
  explicit AccountSetting(const Account& account) : _account(account) {}

  bool isEnabled(const String& dataClass) override {
    const auto kept = userAccount();
    return kept && kept->membership && kept->membership->enabled.contains(dataClass.toString());
  }
  void setEnabled(const String& dataClass, bool enabled) override {
    enableDataClass(_account, dataClass, enabled);
  }

 private:
  const Account& _account;
};

class PlaceHub : public Hub {
 public:
  PlaceHub(const Account& account, double seconds)
      : _account(account),
        _place(placeOf(account, seconds)),
        _sealer(sealerOf(account)),
        _setting(_account),
        _hub(*_place, _sealer, _setting, {.keptPath = userChainPath(), .computer = account.computer}) {}

  RemoteChanges remoteChanges(const std::vector<HubState>& seen) override {
    RemoteChanges changes = _hub.remoteChanges(seen);
    if (changes.enabled) checkInvitation();
    return changes;
  }
  HubPushed push(const HubPush& push) override { return _hub.push(push); }
  bool hasPush(const String& pushId) override { return _hub.hasPush(pushId); }
  bool isEnabled(const String& dataClass) override { return _hub.isEnabled(dataClass); }
  void setEnabled(const String& dataClass, bool enabled) override { _hub.setEnabled(dataClass, enabled); }

 private:
  // From the first exchange on the computer knows the chain itself.
  void checkInvitation() {
    CommitMark& newest = _account.membership->newest;
    if (newest.number == 0) return;
    if (!continues(keptPath(_account), newest)) {
      throw PlatformException(
          DotPeltoException,
          "The account at " + _place->description() +
              " is in an older state than when this computer was invited, or in another one: "
              "the place went back, or withholds something. Sync on a computer that belongs to "
              "the account for longer, and have it invite this one anew.");
    }
    newest = {};
    changeMembership(userAccountPath(), _account, [](Membership& membership) { membership.newest = {}; });
  }

  Account _account;
  std::unique_ptr<Place> _place;
  Sealer _sealer;
  AccountSetting _setting;
  ChainHub _hub;
};

}  // namespace

std::string userChainPath() { return chainPathBeside(userAccountPath()); }

CommitMark newestKnown(const Account& account) {
  const std::vector<Link> path = keptPath(account);
  return path.empty() ? account.membership->newest : markOf(path.back());
}

std::unique_ptr<Hub> makePlaceHub(const Account& account, double seconds) {
  return std::make_unique<PlaceHub>(account, seconds);
}

}  // namespace corvane::pelto
