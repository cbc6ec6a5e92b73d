#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/account/ComputerCards.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane::pelto {

namespace {

using chain::Link;

constexpr double kCardSeconds = 7 * 86'400;
constexpr int kMostTries = 3;

Sealer sealerOf(const Account& account) {
  const Membership& membership = account.membership;
  return {*membership.key, membership.account, membership.generation};
}

std::vector<Link> keptPath(const Account& account) {
  return chain::KeptFile(userChainPath(), sealerOf(account).folder()).read().kept.path;
}

// What takes this computer from one generation to the next, in the account's file and in `account`. `last` is
// the name of the commit that holds the change.
void enterGeneration(Account& account, std::shared_ptr<const AccountKey> key, const GenerationChange& change,
                     const std::string& last) {
  Membership& membership = account.membership;
  const std::string before = sealerOf(account).folder();
  const FormerGeneration former{membership.generation,
                                keyBoxFor(membership.keys->publicKey(), *membership.key), change, last};
  membership.key = std::move(key);
  membership.generation = change.generation;
  const std::string folder = sealerOf(account).folder();
  const auto enter = [&](Membership& changed) {
    changed.left[before] = last;
    changed.left.erase(folder);
    // Another process may have gone as far or further meanwhile.
    const bool isKnown = !changed.former.empty() && changed.former.back().generation >= former.generation;
    if (!isKnown) changed.former.push_back(former);
    if (std::ssize(changed.former) > kMostFormerGenerations) changed.former.erase(changed.former.begin());
    if (changed.generation > change.generation) return;
    changed.key = membership.key;
    changed.generation = change.generation;
  };
  enter(membership);
  changeMembership(userAccountPath(), account, enter);
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

// Another process may switch it meanwhile.
bool isSwitchedOn() {
  const auto kept = userAccount();
  return kept && kept->membership.enabled.contains(kHubDataClass);
}

// The account's chain in one generation.
struct Exchange {
  Exchange(const Account& account, double seconds)
      : place(placeOf(account, seconds)),
        sealer(sealerOf(account)),
        hub(*place, sealer, {.keptPath = userChainPath(), .computer = account.computer}) {}

  std::unique_ptr<Place> place;
  Sealer sealer;
  ChainHub hub;
};

RosterEntry cardOf(const Account& account) {
  const Membership& membership = account.membership;
  return {account.computer, membership.name, membership.keys->publicKey(), Platform::current().clock.now()};
}

[[noreturn]] void fail(const Message& reason) { throw PlatformException(DotPeltoException, reason); }

[[noreturn]] void failOlder(const Place& place) {
  fail(Message(
      "The account at %1 is in an older state than when this computer was invited, or in another one: the "
      "place went back, or withholds something. Sync on a computer that belongs to the account for "
      "longer, and have it invite this one anew.",
      place.description()));
}

class PlaceHub : public Hub {
 public:
  PlaceHub(const Account& account, double seconds)
      : _account(account), _seconds(seconds), _exchange(std::make_unique<Exchange>(_account, _seconds)) {}

  RemoteChanges remoteChanges(const std::vector<HubState>& seen) override {
    if (!isSwitchedOn()) return {};
    while (true) {
      RemoteChanges changes = _exchange->hub.remoteChanges(seen);
      checkInvitation();
      const auto change = _exchange->hub.change();
      if (!change) {
        review();
        leaveCard();
        return changes;
      }
      adopt(*change);
    }
  }
  // The user may have switched bookmarks off since the changes were asked for: whoever asks again hears of
  // it.
  HubPushed push(const HubPush& push) override {
    if (!isSwitchedOn()) return {};
    return _exchange->hub.push(push);
  }
  bool hasPush(const String& pushId) override { return _exchange->hub.hasPush(pushId); }

 private:
  // From the first exchange on the computer knows the chain itself.
  void checkInvitation() {
    CommitMark& newest = _account.membership.newest;
    if (newest.number == 0) return;
    if (!continues(keptPath(_account), newest)) failOlder(*_exchange->place);
    newest = {};
    changeMembership(userAccountPath(), _account, [](Membership& membership) { membership.newest = {}; });
  }

  // Each generation has a higher number than the one before, so that this comes to an end.
  void adopt(const GenerationChange& change) {
    Membership& membership = _account.membership;
    auto key = keyFrom(change, *membership.key, membership.account, _account.computer, *membership.keys);
    if (!key || change.generation <= membership.generation) {
      fail(Message(
          "This computer was taken out of the account at %1, or was invited before the account's key was "
          "changed. Another invitation lets it in again, after `loomerctl account remove`.",
          _exchange->place->description()));
    }
    enterGeneration(_account, std::make_shared<AccountKey>(*std::move(key)), change, _exchange->hub.newest());
    _exchange.reset();  // it holds the lock of what is kept
    _exchange = std::make_unique<Exchange>(_account, _seconds);
  }

  // A place that was put back to before a change of the key has forgotten it, and computers that have not
  // followed it would go on without the others. The newest generation comes first, so that whoever is handed
  // a key finds ended what has ended. The exchange matters more.
  void review() {
    std::vector<FormerGeneration>& former = _account.membership.former;
    if (former.empty() || !_exchange->hub.isReviewDue()) return;
    try {
      std::for_each(former.rbegin(), former.rend(), [this](FormerGeneration& each) { seeEnded(each); });
      _exchange->hub.noteReviewed();
    } catch (const PlatformException& exception) {
      SCLog("Whether an earlier key's chain has ended is not known: %@", exception.reason());
    }
  }

  void seeEnded(FormerGeneration& former) {
    const Membership& membership = _account.membership;
    const auto sealer = sealerOf(former, membership.account, *membership.keys);
    if (!sealer) return;  // not this computer's
    const std::string keptAt = formerChainPathBeside(userAccountPath(), former.generation);
    ChainHub hub(*_exchange->place, *sealer, {.keptPath = keptAt, .computer = _account.computer});
    if (hub.endAgain(former.change) != former.change) {
      systemLog(
          "The account at %@ is in two parts that no longer meet: the place was put back to before a change "
          "of its key, and a computer that did not have the new one has changed the key again. On each "
          "computer `loomerctl account computers` shows who is in its part. Have those of one part leave "
          "with `loomerctl account remove`, and invite them to the other one",
          _exchange->place->description().inEnglish());
    }
    noteLast(former, sealer->folder(), hub.newest());
  }

  // What else a place that was put back holds of that generation is removed anew.
  void noteLast(FormerGeneration& former, const std::string& folder, const std::string& last) {
    if (former.last == last) return;
    former.last = last;
    _account.membership.left[folder] = last;
    changeMembership(userAccountPath(), _account, [&](Membership& changed) {
      for (FormerGeneration& each : changed.former) {
        if (each.generation == former.generation) each.last = last;
      }
      changed.left[folder] = last;
    });
  }

  // The exchange matters more than the card.
  void leaveCard() {
    const Date now = Platform::current().clock.now();
    const bool isDue = std::abs(now.seconds - _account.membership.carded.seconds) >= kCardSeconds;
    if (!isDue && !_exchange->hub.hasSurveyed()) return;
    try {
      // A place that went back may have forgotten it.
      if (!isDue && hasCard(*_exchange->place, _exchange->sealer, _account.computer)) return;
      Roster alone;
      alone.set(cardOf(_account));
      putCards(*_exchange->place, _exchange->sealer, alone);
      _account.membership.carded = now;
      changeMembership(userAccountPath(), _account, [&](Membership& membership) { membership.carded = now; });
      removeLeft();
    } catch (const PlatformException& exception) {
      SCLog("This computer cannot leave its card at the place: %@", exception.reason());
    }
  }

  // The card tells what time it is at the place.
  void removeLeft() {
    Membership& membership = _account.membership;
    if (membership.left.empty()) return;
    Date now;
    for (const PlaceObject& each : _exchange->place->list(_exchange->sealer.folder() + "/m"))
      now = std::max(now, each.date);
    const auto emptied = removeLeftBehind(*_exchange->place, membership.left, now);
    if (emptied.empty()) return;
    const auto forget = [&](Membership& changed) {
      for (const std::string& each : emptied) changed.left.erase(each);
    };
    forget(membership);
    changeMembership(userAccountPath(), _account, forget);
  }

  Account _account;
  double _seconds;
  std::unique_ptr<Exchange> _exchange;
};

}  // namespace

std::string userChainPath() { return chainPathBeside(userAccountPath()); }

CommitMark newestKnown(const Account& account) {
  const std::vector<Link> path = keptPath(account);
  return path.empty() ? account.membership.newest : markOf(path.back());
}

std::optional<std::string> nextCommitObject(const Account& account) {
  const std::string folder = sealerOf(account).folder();
  const chain::Kept kept = chain::KeptFile(userChainPath(), folder).read().kept;
  if (chain::isEnded(kept)) return std::nullopt;
  const Link* const head = kept.head();
  return chain::commitObjectIn(folder, chain::nameOf(head ? chain::slotAfter(head->number, head->hash)
                                                          : chain::slotAfter(0, chain::beginning())));
}

std::unique_ptr<Hub> makePlaceHub(const Account& account, double seconds) {
  return std::make_unique<PlaceHub>(account, seconds);
}

void checkJoinable(const Account& account, double seconds) {
  try {
    Exchange exchange(account, seconds);
    const bool hasEnded = exchange.hub.change().has_value();
    const CommitMark& newest = account.membership.newest;
    const std::vector<Link> path = keptPath(account);
    if (path.empty() && newest.number > 0) {
      fail(Message(
          "There is nothing of the account at %1, though there was when this computer was invited. Sync "
          "on a computer that belongs to the account, and have it invite this one anew.",
          exchange.place->description()));
    }
    if (hasEnded) {
      fail(Message(
          "The key of the account at %1 has changed since this computer was invited. It takes another "
          "invitation, or a passphrase that is set since.",
          exchange.place->description()));
    }
    if (!continues(path, newest)) failOlder(*exchange.place);
  } catch (const PlatformException&) {
    forgetChain(userAccountPath());
    throw;
  }
}

Roster computersOf(const Account& account, double seconds) {
  const auto place = placeOf(account, seconds);
  Roster roster = readCards(*place, sealerOf(account));
  roster.set(cardOf(account));
  return roster;
}

Roster changeAccountKey(const Account& account, const String& removed, double seconds) {
  const Membership& before = account.membership;
  const auto key = std::make_shared<AccountKey>(AccountKey::random());
  Account after = account;
  after.membership.key = key;
  after.membership.generation = before.generation + 1;

  const Sealer next = sealerOf(after);
  // Where this ends halfway, what is begun is removed one day.
  changeMembership(userAccountPath(), account,
                   [&](Membership& membership) { membership.left[next.folder()] = ""; });
  Roster roster = computersOf(account, seconds);
  const GenerationChange change =
      changeGeneration(*before.key, *key, before.account, after.membership.generation, roster,
                       removed ? std::vector<String>{removed} : std::vector<String>());
  if (removed) roster.remove(removed);
  Exchange exchange(account, seconds);
  putCards(*exchange.place, next, roster);
  auto outcome = HubPushed::Outcome::overtaken;
  for (int i = 0; i < kMostTries && outcome == HubPushed::Outcome::overtaken; ++i)
    outcome = exchange.hub.changeGeneration(next, change);
  if (outcome != HubPushed::Outcome::done) {
    const Message where = exchange.place->description();
    fail(
        outcome == HubPushed::Outcome::full
            ? Message(
                  "The account's key is not changed: there is no room at %1, or one of them has changed it. "
                  "Sync, and try again.",
                  where)
            : Message(
                  "The account's key is not changed: other computers give all the time at %1, or one of them "
                  "has changed it. Sync, and try again.",
                  where));
  }
  Account changed = account;
  enterGeneration(changed, key, change, exchange.hub.newest());
  return roster;
}

}  // namespace corvane::pelto
