#include "CorvaneSyncClient/platform/loomer/hub/HubExchange.h"

#include <algorithm>
#include <exception>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/loomer/session/EmbeddedSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/loomer/store/FailedRuns.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane::loomer {

namespace {

// When several computers of one account push at the same moment, one of them gets through each time.
constexpr int kAttempts = 20;
constexpr double kPauseSeconds = 0.05;

// How long one run gives what is left.
constexpr double kGivingSeconds = 90.0;
// What a service lost it is given again in one push: half of it might be taken for all by computers that know
// less. A line that cannot carry that in time, though nothing else is wrong with it, is given half as much at
// the next run.
constexpr std::size_t kMostGivenAgainAtOnce = 128'000;
constexpr const char* kGivesAtMostKey = "gives again at most";
constexpr double kInVainSeconds = 60.0;

double secondsNow() { return Platform::current().clock.now().seconds; }

void reportAlone(const std::string& cause) {
  systemLog("Bookmarks were synced on this computer alone, not with the online service: %@", cause);
}

std::optional<ClientState> stateOf(TruthStore& store) {
  return ClientTable(store).find(String(kHubClientIdentifier));
}

}  // namespace

HubExchange::HubExchange(ClientRegistry& clients, HubOpener openHub)
    : _clients(clients), _openHub(std::move(openHub)) {}

HubExchange::~HubExchange() = default;

void HubExchange::takeIn() {
  _known.reset();
  guarded(&HubExchange::exchange);
}

void HubExchange::giveChanges() {
  if (guarded(&HubExchange::giveEverything))
    FailedRuns(_clients.store().path()).endRow(String(kHubClientIdentifier));
}

bool HubExchange::guarded(void (HubExchange::*work)()) {
  if (_ended) return false;
  try {
    if (!_hub) _hub = _openHub();
    if (_hub) {
      (this->*work)();
      return true;
    }
  } catch (const PlatformException& exception) {
    fail(exception.message());
  } catch (const std::exception& exception) {
    fail(std::string(exception.what()));
  } catch (...) {
    fail(Message("an exception of an unknown kind."));
  }
  _ended = true;
  return false;
}

// What goes wrong here must not be what the file's session fails of.
void HubExchange::fail(const Message& cause) noexcept {
  try {
    reportAlone(cause.inEnglish());
    FailedRuns(_clients.store().path()).note(String(kHubClientIdentifier), cause);
  } catch (...) {
    SCLog("There was no memory for the cause why bookmarks were not synced with the online service");
  }
}

void HubExchange::exchange() {
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    const Outcome outcome = exchangeOnce();
    if (outcome == Outcome::takenIn) continue;
    _hasMore = outcome == Outcome::more && _hasRoom;
    if (outcome != Outcome::overtaken) return;
    _known.reset();
    Platform::current().clock.sleep(kPauseSeconds * attempt);
  }
  throw PlatformException(pelto::DotPeltoException,
                          Message("other computers gave changes all the time. Sync again."));
}

void HubExchange::giveEverything() {
  if (!_hasRoom || (!_hasMore && !hasChangesForHub())) return;
  const double began = secondsNow();
  do {
    exchange();
  } while (_hasMore && secondsNow() - began < kGivingSeconds);
}

HubExchange::Outcome HubExchange::exchangeOnce() {
  LoomerClient& client = hubClient();
  const HubPast past(client);
  pelto::RemoteChanges remote = remoteChanges(past);
  if (!remote.enabled) {
    _ended = true;
    return Outcome::done;
  }
  if (!past.empty() && past.newest().account != remote.now.account) {
    _clients.unregisterClient(client);  // its base is of another account
    return Outcome::overtaken;
  }
  const bool offersAgain = offersAgainToHub(client, remote.room);
  if (!past.empty() && past.newest() == remote.now && !offersAgain && !hasChangesForHub())
    return Outcome::done;
  const bool isFirst = takesInFirst(client, past, remote), gives = _hasRoom && !isFirst;
  HubClient source(_clients.store(), *_hub, past, std::move(remote), gives ? _pushSize.records() : 0);
  const bool givesAgain = gives && source.wentBackTo();
  const Outcome outcome = givesAgain ? giveAgain(client, source) : runSession(client, source, gives);
  return outcome == Outcome::more && _hasRoom && isFirst ? Outcome::takenIn : outcome;
}

// Where the base corresponds to the state that the service was in when it answered last, nothing is new.
pelto::RemoteChanges HubExchange::remoteChanges(const HubPast& past) {
  if (_known && !past.empty() && past.newest() == _known->now) return *_known;
  pelto::RemoteChanges remote = _hub->remoteChanges(past.states());
  _known.reset();
  if (remote.enabled) {
    pelto::RemoteChanges& known = _known.emplace();
    known.enabled = true;
    known.now = remote.now;
    known.common = remote.now;
    known.room = remote.room;
    known.roomForBytes = remote.roomForBytes;
  }
  return remote;
}

HubExchange::Outcome HubExchange::giveAgain(LoomerClient& client, HubClient& source) {
  const std::optional<Value> noted = client.objectForKey(kGivesAtMostKey);
  const auto* const number = noted ? noted->as<std::int64_t>() : nullptr;
  source.giveAtMost(number ? static_cast<std::size_t>(*number) : kMostGivenAgainAtOnce);
  const double began = secondsNow();
  try {
    const Outcome outcome = runSession(client, source, true);
    if (number && outcome != Outcome::overtaken) client.setObject(std::nullopt, kGivesAtMostKey);
    return outcome;
  } catch (...) {
    const std::size_t half = std::max(source.inPush() / 2, kSmallestPush);
    if (source.inPush() > 0 && secondsNow() - began > kInVainSeconds)
      client.setObject(Value(static_cast<std::int64_t>(half)), kGivesAtMostKey);
    throw;
  }
}

HubExchange::Outcome HubExchange::runSession(LoomerClient& client, HubClient& source, bool gives) {
  const auto before = stateOf(_clients.store());
  if (!before) return Outcome::overtaken;  // another process has just unregistered the service
  const bool wentBack = source.wentBackTo() != nullptr;
  EmbeddedSessionDriver driver(_clients, source);
  driver._setClient(&client);
  if (driver.sync()) {
    if (gives) _pushSize.suit(source.pushSeconds(), source.postponed() > 0);
    if (gives && client.objectForKey(kNoRoomKey)) client.setObject(std::nullopt, kNoRoomKey);
    report(source, wentBack, before->id);
    return source.postponed() > 0 ? Outcome::more : Outcome::done;
  }
  const auto after = stateOf(_clients.store());
  if (source.foundNoRoom()) return takeInAlone(client);
  const bool otherProcessWasFaster = !after || after->sessions != before->sessions;
  if (source.wasOvertaken() || otherProcessWasFaster) return Outcome::overtaken;
  throw PlatformException(pelto::DotPeltoException, driver.lastError());
}

// What others gave is taken in all the same, in a session that gives nothing.
HubExchange::Outcome HubExchange::takeInAlone(LoomerClient& client) {
  _hasRoom = false;
  client.setObject(Value(true), kNoRoomKey);
  systemLog(
      "There is no room at the online service: what was changed here stays on this computer until there is");
  return Outcome::overtaken;
}

void HubExchange::report(const HubClient& source, bool wentBack, std::int64_t client) {
  if (wentBack) {
    systemLog(
        "The online service was put back to an earlier state: it is given again what it lost, and what was "
        "changed there since stands");
  }
  if (source.postponed() > 0) return;  // the session with the last push reports
  if (source.tooLong() > 0) {
    systemLog("%d bookmarks and folders are too long for the online service and stay on this computer",
              source.tooLong());
  }
  if (source.leftOut() == 0) return;
  const std::size_t notHeld = BaseTable(_clients.store()).notHeldCount(client);
  if (notHeld <= source.tooLong()) return;  // another process has unregistered the service meanwhile
  systemLog("The account at the online service is full: %d bookmarks and folders stay on this computer",
            notHeld - source.tooLong());
}

LoomerClient& HubExchange::hubClient() {
  const String identifier(kHubClientIdentifier);
  if (LoomerClient* client = _clients.find(identifier)) return *client;
  const Dictionary description{
      {"DisplayName", "Online service"},
      {"DataClass", LoomerDataClass_Bookmarks},
      {"Entities", Array{LoomerEntity_Bookmarks_Folder, LoomerEntity_Bookmarks_Bookmark}}};
  return _clients.registerClient(identifier, description);
}

bool HubExchange::hasChangesForHub() {
  const auto state = stateOf(_clients.store());
  return !state || state->resetPending || state->restorePending ||
         mayHaveNews(*state, RecordTable(_clients.store()).state());
}

}  // namespace corvane::loomer
