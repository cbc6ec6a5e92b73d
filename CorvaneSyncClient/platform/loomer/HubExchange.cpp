#include "CorvaneSyncClient/platform/loomer/HubExchange.h"

#include "CorvaneSyncClient/platform/loomer/EmbeddedSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/HubClient.h"
#include "CorvaneSyncClient/platform/loomer/SessionMode.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

namespace {

// Computers of one account that give changes at one moment: each time one of them gets through.
constexpr int kAttempts = 20;
constexpr double kPauseSeconds = 0.05;

std::optional<ClientState> stateOf(TruthStore& store) {
  return ClientTable(store).find(String(kHubClientIdentifier));
}

}  // namespace

HubExchange::HubExchange(EmbeddedManager& manager, HubOpener openHub)
    : _manager(manager), _openHub(std::move(openHub)) {}

HubExchange::~HubExchange() = default;

void HubExchange::run() {
  if (_ended) return;
  try {
    if (!_hub) _hub = _openHub();
    if (_hub) return exchange();
  } catch (const PlatformException& exception) {
    systemLog("Bookmarks were synced on this computer alone, not with the online service: %@",
              exception.reason());
  }
  _ended = true;
}

void HubExchange::giveNews() {
  if (!_ended && hasNewsForHub()) run();
}

void HubExchange::exchange() {
  for (int attempt = 1; attempt <= kAttempts; ++attempt) {
    if (exchangeOnce()) return;
    Platform::current().clock.sleep(kPauseSeconds * attempt);
  }
  throw PlatformException(pelto::DotPeltoException, "other computers gave changes all the time. Sync again.");
}

bool HubExchange::exchangeOnce() {
  LoomerClient& client = hubClient();
  const std::optional<pelto::HubSeen> seen = seenByHubClient(client);
  pelto::HubNews news = _hub->news(seen);
  if (!news.enabled) {
    _ended = true;
    return true;
  }
  if (seen && seen->account != news.now.account) {
    _manager.unregisterClient(client);  // its base is of another account
    return false;
  }
  if (seen && !news.continues) {
    systemLog(
        "The online service was put back to an earlier state: bookmarks are met with it anew, and "
        "nothing is deleted for being missing there");
  }
  const bool hasRoomForMore = news.room > 0 && leftOutOfHub(client);
  if (seen == news.now && !hasRoomForMore && !hasNewsForHub()) return true;
  return runSession(client, HubClient(_manager.store(), *_hub, seen, std::move(news)));
}

bool HubExchange::runSession(LoomerClient& client, HubClient source) {
  const std::int64_t sessionsBefore = stateOf(_manager.store())->sessions;
  EmbeddedSessionDriver driver(_manager, source);
  driver._setClient(&client);
  if (driver.sync()) {
    if (source.leftOut() > 0) {
      systemLog("The account at the online service is full: %d bookmarks and folders stay on this computer",
                source.leftOut());
    }
    return true;
  }
  const auto state = stateOf(_manager.store());
  const bool otherProcessWasFaster = !state || state->sessions != sessionsBefore;
  if (source.wasOvertaken() || otherProcessWasFaster) return false;
  throw PlatformException(pelto::DotPeltoException, driver.lastError().toString());
}

LoomerClient& HubExchange::hubClient() {
  const String identifier(kHubClientIdentifier);
  if (LoomerClient* client = _manager.clientWithIdentifier(identifier)) return *client;
  const Dictionary description{
      {"DisplayName", "Online service"},
      {"DataClass", LoomerDataClass_Bookmarks},
      {"Entities", Array{LoomerEntity_Bookmarks_Folder, LoomerEntity_Bookmarks_Bookmark}}};
  ClientTable(_manager.store()).enter(identifier, description, Platform::current().clock.now());
  return *_manager.clientWithIdentifier(identifier);
}

bool HubExchange::hasNewsForHub() {
  const auto state = stateOf(_manager.store());
  return !state || mayHaveNews(*state, RecordTable(_manager.store()).state());
}

ExchangingSessionDriver::ExchangingSessionDriver(std::unique_ptr<LoomerSessionDriver> driver,
                                                 std::unique_ptr<HubExchange> exchange)
    : _driver(std::move(driver)), _exchange(std::move(exchange)) {}

bool ExchangingSessionDriver::sync() {
  _exchange->run();
  const bool succeeded = _driver->sync();
  if (succeeded) _exchange->giveNews();
  return succeeded;
}

}  // namespace corvane::loomer
