#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"

#include "CorvaneSyncClient/platform/loomer/session/SessionMode.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane::loomer {

namespace {

constexpr const char* kCannotRegister = "Loomer - cannot register client %@ with description %@: %@";

}  // namespace

EmbeddedManager::EmbeddedManager(const std::string& storePath) : _store(storePath) {}

EmbeddedClient* EmbeddedManager::clientWithIdentifier(const String& identifier) {
  return _clients.find(identifier);
}

LoomerClient* EmbeddedManager::registerClientWithIdentifier(const String& identifier,
                                                            const std::string& descriptionFilePath) {
  Message problem;
  LoomerClient* client = _clients.registerClient(identifier, descriptionFilePath, problem);
  if (!client) SCLog(kCannotRegister, identifier, descriptionFilePath, problem.inEnglish());
  return client;
}

LoomerClient* EmbeddedManager::registerClientWithIdentifier(
    const String& identifier, const String& descriptionBundleId,
    const std::string& descriptionBundleRelativePath) {
  const auto bundle = Platform::current().bundles.bundleWithIdentifier(descriptionBundleId.toString());
  if (!bundle) {
    systemLog("Loomer - cannot register client %@ with description %@ of bundle %@: there is no such bundle",
              identifier, descriptionBundleRelativePath, descriptionBundleId);
    return nullptr;
  }
  const std::string path = joinedPath(bundle->path(), descriptionBundleRelativePath);
  Message problem;
  LoomerClient* client = _clients.registerClient(identifier, path, problem);
  if (!client) systemLog(kCannotRegister, identifier, path, problem.inEnglish());
  return client;
}

void EmbeddedManager::unregisterClient(LoomerClient& client) { _clients.unregisterClient(client); }

LoomerNews EmbeddedManager::newsForClient(const String& identifier) {
  LoomerNews news;
  _store.reading([&] {
    const TruthState truth = RecordTable(_store).state();
    news.revision = truth.revision;
    for (const ClientState& each : ClientTable(_store).all()) {
      news.sessions += each.sessions;
      if (each.identifier != identifier) continue;
      news.isBehind = mayHaveNews(each, truth);
      news.isPending = each.resetPending || each.restorePending;
      const auto refusal = RefusalTable(_store).find(each.id);
      news.isApproved = refusal && refusal->approved;
    }
  });
  return news;
}

std::unique_ptr<LoomerSessionDriver> EmbeddedManager::sessionDriverWithDataSource(
    LoomerSessionDriverDataSource& dataSource) {
  auto exchange = _openHub ? std::make_unique<HubExchange>(_clients, _openHub) : nullptr;
  return std::make_unique<EmbeddedSessionDriver>(_clients, dataSource, std::move(exchange));
}

}  // namespace corvane::loomer
