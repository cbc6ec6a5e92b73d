#include "tools/loomerctl/ClientViews.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "browsers/BrowserNames.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

// The newest session of each client that is in the log.
void addLastChanges(TruthStore& store, std::vector<ClientView>& views) {
  SessionLog log(store);
  std::size_t missing = views.size();
  if (missing == 0) return;
  log.newestFirst([&](const SessionEntry& session) {
    const auto view = std::find_if(views.begin(), views.end(), [&](const ClientView& each) {
      return each.state.identifier == session.client;
    });
    if (view == views.end() || view->lastChange) return true;
    view->lastChange = session;
    view->conflicts = log.lossCount(session.id);
    return --missing > 0;
  });
}

void addFailedRuns(TruthStore& store, std::vector<ClientView>& views) {
  const auto failed = FailedRuns(store.path()).all();
  for (ClientView& view : views) {
    const auto found = failed.find(view.state.identifier.toString());
    if (found != failed.end()) view.failed = found->second;
  }
}

// A client whose file is not there was a slip of the pen, but for the one that is always there; a browser's
// name nobody types.
bool isThereFileOf(const String& identifier) {
  if (identifier == kMainClientId || browsers::isBrowserClient(identifier.view())) return true;
  const auto name = fileNameForClientId(identifier);
  return name && Platform::current().files.attributesIfKnown(joinedPath(bookmarksDirectory(), *name));
}

}  // namespace

std::vector<ClientView> clientViews(TruthStore& store) {
  ClientTable clients(store);
  BaseTable bases(store);
  RefusalTable refusals(store);
  const TruthState truth = RecordTable(store).state();
  std::vector<ClientView> views;
  for (ClientState& each : clients.all()) {
    ClientView& view = views.emplace_back();
    const Dictionary description = clients.description(each.id);
    view.name = description.string("DisplayName");
    view.tool = description.string("ToolPath");
    view.image = description.string("ImagePath");
    view.held = bases.heldCount(each.id);
    view.changesMayWait = mayHaveNews(each, truth);
    view.isPaused = clients.value(each.id, browsers::kPausedKey).has_value();
    view.refusal = refusals.find(each.id);
    view.kept = KeptFiles(store.path(), each.identifier).all();
    view.state = std::move(each);
  }
  addLastChanges(store, views);
  addFailedRuns(store, views);
  return views;
}

std::vector<ClientView> clientViewsWithFailed(TruthStore& store) {
  std::vector<ClientView> views = clientViews(store);
  for (auto& failed : FailedRuns(store.path()).all()) {
    const String identifier = failed.first;
    const bool isKnown = std::any_of(views.begin(), views.end(), [&](const ClientView& each) {
      return each.state.identifier == identifier;
    });
    if (isKnown || failed.second.inARow == 0 || !isThereFileOf(identifier)) continue;
    ClientView& view = views.emplace_back();
    view.state.identifier = identifier;
    view.isRegistered = false;
    view.failed = std::move(failed.second);
  }
  return views;
}

bool isOnlineService(const ClientView& view) { return view.state.identifier == kHubClientIdentifier; }

bool isBrowser(const ClientView& view) { return browsers::isBrowserClient(view.state.identifier.view()); }

bool isFailing(const ClientView& view) { return view.failed.inARow > 0; }

std::optional<Date> lastTried(const ClientView& view) {
  return isFailing(view) ? view.failed.last : view.state.lastSession;
}

std::string nameText(const ClientView& view) {
  const std::string identifier = printable(view.state.identifier.view());
  return view.name ? printable(view.name.view()) + " (" + identifier + ')' : identifier;
}

std::string shortNameText(const std::vector<ClientView>& all, const ClientView& view) {
  const auto namesakes = std::count_if(
      all.begin(), all.end(), [&](const ClientView& each) { return each.name && each.name == view.name; });
  return printable(namesakes == 1 ? view.name.view() : view.state.identifier.view());
}

namespace {

std::string refusalText(const Refusal& refusal) {
  return refusal.approved ? tr("refused: would delete %1 of %2, approved", refusal.deletions, refusal.live)
                          : tr("refused: would delete %1 of %2", refusal.deletions, refusal.live);
}

}  // namespace

std::string nextText(const ClientView& view) {
  if (view.state.resetPending) return tr("will be replaced");
  if (view.state.restorePending) return tr("will get back what it lacks");
  if (view.refusal) return refusalText(*view.refusal);
  if (view.isPaused) return tr("paused");
  if (!view.state.syncedRevision) return tr("first session");
  return view.changesMayWait ? tr("changes may be waiting") : tr("up to date");
}

bool isWaiting(const ClientView& view) {
  return view.state.resetPending || view.state.restorePending || view.refusal;
}

void writeRefusal(JsonWriter& json, const std::optional<Refusal>& refusal) {
  json.key("refusedPlan");
  if (!refusal) return json.null();
  json.beginObject();
  json.member("deletions", refusal->deletions);
  json.member("live", refusal->live);
  json.member("refused", refusal->refused);
  json.member("approved", refusal->approved);
  json.endObject();
}

}  // namespace corvane::loomerctl
