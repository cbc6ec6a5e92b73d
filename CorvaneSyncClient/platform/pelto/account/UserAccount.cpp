#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"

#include <cmath>
#include <utility>

#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"
#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::pelto {

namespace {

// Writing the file takes as long as a short session.
constexpr double kNotedForSeconds = 24.0 * 60 * 60;

// The engine gives for a minute and a half at most; the rest is for what is slow.
constexpr double kExchangeSeconds = 300;

std::unique_ptr<Hub> makeHub(const Account& account) {
  if (currentService<HubMaker>) return (*currentService<HubMaker>)(account);
  return makePlaceHub(account, kExchangeSeconds);
}

// An account that the user has replaced or removed meanwhile needs no note. One that is replaced or removed
// at this very moment is not affected by the note.
void noteReached(const Account& account) {
  try {
    const auto kept = userAccount();
    if (!kept || kept->url != account.url || !(kept->computer == account.computer)) return;
    const Date now = Platform::current().clock.now();
    if (kept->reached && std::abs(now.seconds - kept->reached->seconds) < kNotedForSeconds) return;
    noteAccountReached(userAccountPath(), account, now);
  } catch (const PlatformException& exception) {
    // The service's answer matters more than the note of it.
    systemLog("The online service answered, but that cannot be noted: %@", exception.reason());
  }
}

// A hub that notes the first answer.
class NotingHub : public Hub {
 public:
  NotingHub(const Account& account, std::unique_ptr<Hub> hub) : _account(account), _hub(std::move(hub)) {}

  RemoteChanges remoteChanges(const std::vector<HubState>& seen) override {
    RemoteChanges changes = _hub->remoteChanges(seen);
    if (changes.enabled) note();  // nobody is asked where bookmarks are switched off
    return changes;
  }
  HubPushed push(const HubPush& push) override { return noted(_hub->push(push)); }
  bool hasPush(const String& pushId) override { return noted(_hub->hasPush(pushId)); }

 private:
  template <typename T>
  T noted(T answer) {
    note();
    return answer;
  }
  void note() {
    if (!_noted) noteReached(_account);
    _noted = true;
  }

  Account _account;
  std::unique_ptr<Hub> _hub;
  bool _noted = false;
};

}  // namespace

std::string userAccountPath() { return accountPathForHome(Platform::current().process.homeDirectory()); }

std::optional<Account> userAccount() { return readAccount(userAccountPath()); }

std::unique_ptr<Place> placeOf(const Account& account, double seconds) {
  return makePlace(parsePlaceAddress(account.url), account.membership.credentials, after(seconds));
}

void enableDataClass(const Account& account, const String& dataClass, bool enabled) {
  changeMembership(userAccountPath(), account, [&](Membership& membership) {
    if (enabled) {
      membership.enabled.insert(dataClass.toString());
    } else {
      membership.enabled.erase(dataClass.toString());
    }
  });
}

std::unique_ptr<Hub> hubOf(const Account& account) {
  return std::make_unique<NotingHub>(account, makeHub(account));
}

}  // namespace corvane::pelto
