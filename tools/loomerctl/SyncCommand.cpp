// `sync`.

#include <algorithm>

#include "CorvaneSyncClient/front/SingleRunLock.h"
#include "CorvaneSyncClient/platform/loomer/hub/HubClient.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/store/FailedRuns.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Programs.h"
#include "tools/loomerctl/Progress.h"
#include "tools/loomerctl/SyncRounds.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserClients.h"
#include "tools/loomerctl/UserStore.h"
#include "tools/loomerctl/UserUnits.h"

namespace corvane::loomerctl {

namespace {

std::optional<Date> dateOfFile(const String& client) {
  const auto file = Platform::current().files.attributesIfKnown(bookmarksFileOf(client));
  return file ? std::optional(file->modificationDate) : std::nullopt;
}

// Runs the corvanetool that this program was installed with.
class ToolRunner : public SessionRunner {
 public:
  explicit ToolRunner(Output& err) : _progress(err) {}

  bool sync(const String& client) override {
    _dates[client.toString()] = dateOfFile(client);
    const std::string name = printable(client.view());
    _progress.say(tr("Syncing %1", name));
    const auto waiting = [&](std::size_t seconds) {
      _progress.say(counted(seconds, "Syncing %2 for %1 second", "Syncing %2 for %1 seconds", name));
    };
    return runProgram({_tool, "--sync", client.toString(), "--entitynames", "bookmarks"}, waiting).status ==
           0;
  }

  bool isBusy() override {
    const auto run = SingleRunLock().holder();
    return (run && !run->isStale) ||
           Platform::current().files.attributesIfKnown(joinedPath(bookmarksDirectory(), "lock"));
  }

  bool hasNews(const String& client) override {
    const auto store = openStoreIfAny();
    if (!store) return false;
    store->beginReading();
    loomer::ClientTable clients(*store);
    const auto state = clients.find(client);
    if (!state) return false;
    if (loomer::mayHaveNews(*state, loomer::RecordTable(*store).state())) return true;
    const auto date = dateOfFile(client), before = _dates[client.toString()];
    if (!date || (before && *date == *before)) return false;
    // Written since the session began, by the session or after it.
    const auto synced = clients.value(state->id, kModDateOnLastSync);
    const Date* const saved = synced ? synced->as<Date>() : nullptr;
    return !saved || *saved < *date;
  }

 private:
  Progress _progress;
  std::string _tool = joinedPath(ownDirectory(), "corvanetool");
  std::map<std::string, std::optional<Date>> _dates;  // of the clients' files before their last sessions
};

std::vector<String> clientsToSync(const Options& options) {
  if (!options.clients.empty()) return namedClients(options.clients);
  std::vector<String> enabled = enabledUnits().clients;
  return enabled.empty() ? registeredClients() : enabled;
}

constexpr double kLongestPeace = 4 * 60 * 60;

// While the online service is away it is left in peace for as long again as it had been away at the last try.
bool leavesServiceInPeace() {
  const auto failed = loomer::FailedRuns(storePath()).all();
  const auto service = failed.find(loomer::kHubClientIdentifier);
  if (service == failed.end() || service->second.inARow == 0) return false;
  const loomer::FailedRunsOfClient& runs = service->second;
  const double away = std::min(runs.last.seconds - runs.since.seconds, kLongestPeace);
  return Platform::current().clock.now().seconds < runs.last.seconds + away;
}

// Whether a session has something to do but to ask the online service.
bool hasOwnNews(const String& client) {
  const auto store = openStoreIfAny();
  if (!store) return true;
  store->beginReading();
  const auto state = loomer::ClientTable(*store).find(client);
  if (!state || !state->lastSession || state->cancelled || state->resetPending || state->restorePending)
    return true;
  const auto date = dateOfFile(client);
  return loomer::mayHaveNews(*state, loomer::RecordTable(*store).state()) ||
         (date && *state->lastSession < *date);
}

// What is to be synced by a run that nobody waits for.
std::vector<String> withoutIdle(std::vector<String> clients) {
  for (const String& each : clients) awaitQuiet(bookmarksFileOf(each));
  if (leavesServiceInPeace()) std::erase_if(clients, [](const String& each) { return !hasOwnNews(each); });
  return clients;
}

}  // namespace

Status syncClients(Invocation& run) {
  std::vector<String> clients = clientsToSync(run.options);
  if (run.options.unattended) clients = withoutIdle(std::move(clients));
  const auto ends = [&] {
    ToolRunner runner(run.err);
    return syncInRounds(clients, runner);
  }();
  Status status = statusFine;
  for (const auto& [client, end] : ends) {
    const std::string name = printable(client);
    if (end == SyncEnd::succeeded) {
      run.out.write(tr("%1 is synced.", name) + '\n');
    } else if (end == SyncEnd::busy) {
      run.err.write(
          tr("%1 is not synced: another run, or a program that writes bookmarks, is at work.", name) + '\n');
    } else {
      run.err.write(tr("%1 is not synced; `loomerctl status` says why.", name) + '\n');
      status = statusRefused;
    }
  }
  return status;
}

}  // namespace corvane::loomerctl
