#include "tools/loomerctl/SyncState.h"

#include <algorithm>

#include "CorvaneSyncClient/front/SingleRunLock.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Concerns.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

const ClientView* onlineService(const std::vector<ClientView>& clients) {
  const auto found = std::find_if(clients.begin(), clients.end(), isOnlineService);
  return found == clients.end() ? nullptr : &*found;
}

// Each session of a file is preceded by an exchange, so that one since which none failed reached the service.
// What the account's file says of that is at most a day late.
std::optional<Date> lastReached(const ServiceState& service, const SyncState& state, const ClientView* hub) {
  std::optional<Date> reached = service.reached;
  if (!hub || !hub->isRegistered) return reached;
  reached = std::max(reached, hub->state.lastSession);
  const ClientView* const last = state.lastSynced();
  if (service.isOn && !isFailing(*hub) && last) reached = std::max(reached, last->state.lastSession);
  return reached;
}

std::optional<ServiceState> serviceState(TruthStore& store, const SyncState& state) {
  ServiceState service;
  const ClientView* const hub = onlineService(state.clients);
  if (hub) service.failed = hub->failed;
  try {
    const auto account = pelto::userAccount();
    if (!account) return std::nullopt;
    service.place = tr(pelto::parsePlaceAddress(account->url).description());
    service.isOn = account->membership.enabled.contains(LoomerDataClass_Bookmarks.toString());
    service.reached = account->reached;
  } catch (const PlatformException& exception) {
    service.problem = tr(exception.message());
    return service;
  }
  service.reached = lastReached(service, state, hub);
  const bool mayHaveChanges = service.isOn && (!hub || !hub->isRegistered || hub->changesMayWait);
  const std::int64_t known = hub ? hub->state.syncedRevision.value_or(0) : 0;
  if (mayHaveChanges) service.waiting = RecordTable(store).changedSince(known);
  if (!service.isOn || !hub || !hub->isRegistered) return service;
  service.hasRoom = !ClientTable(store).value(hub->state.id, kNoRoomKey);
  service.notHeld = BaseTable(store).notHeldCount(hub->state.id);
  return service;
}

}  // namespace

const ClientView* SyncState::lastSynced() const {
  const ClientView* last = nullptr;
  for (const ClientView& each : clients) {
    if (!each.state.lastSession) continue;
    if (!last || *last->state.lastSession < *each.state.lastSession) last = &each;
  }
  return last;
}

SyncState syncState(TruthStore& store, BookmarksFiles& files) {
  SyncState state;
  state.storePath = store.path();
  state.storeBytes = store.bytes();
  state.truth = RecordTable(store).state();
  state.records = RecordTable(store).counts();
  state.sessions = SessionLog(store).count();
  state.clients = clientViewsWithFailed(store);
  state.service = serviceState(store, state);
  state.units = enabledUnits();
  const auto run = SingleRunLock().holder();
  if (run && !run->isStale) state.running = run->since;
  state.concerns = concernsIn(state, run, files);
  return state;
}

}  // namespace corvane::loomerctl
