#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"

#include "CorvaneSyncClient/platform/loomer/ClientDescription.h"
#include "CorvaneSyncClient/platform/loomer/EmbeddedSessionDriver.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane::loomer {

namespace {

constexpr const char* kCannotRegister = "Loomer - cannot register client %@ with description %@: %@";

}  // namespace

std::string storePathForHome(const std::string& homeDirectory) {
  return joinedPath(homeDirectory, "Library/Application Support/Loomer/Truth.db");
}

EmbeddedManager::EmbeddedManager(const std::string& storePath) : _store(storePath) {}

EmbeddedClient* EmbeddedManager::clientWithIdentifier(const String& identifier) {
  const std::string key = identifier.toString();
  const auto state = identifier ? _table.find(identifier) : std::nullopt;
  if (!state) {
    _clients.erase(key);  // another process may have unregistered it
    return nullptr;
  }
  std::unique_ptr<EmbeddedClient>& client = _clients[key];
  if (!client || client->row() != state->id) {
    client = std::make_unique<EmbeddedClient>(_store, identifier, state->id);
  }
  return client.get();
}

EmbeddedClient* EmbeddedManager::registerClient(const String& identifier,
                                                const std::string& descriptionFilePath,
                                                std::string& problem) {
  const auto description = readClientDescription(descriptionFilePath, problem);
  if (!description) return nullptr;
  if (identifier.empty()) {
    problem = "the client has no identifier";
    return nullptr;
  }
  _table.enter(identifier, *description, Platform::current().clock.now());
  return clientWithIdentifier(identifier);
}

LoomerClient* EmbeddedManager::registerClientWithIdentifier(const String& identifier,
                                                            const std::string& descriptionFilePath) {
  std::string problem;
  LoomerClient* client = registerClient(identifier, descriptionFilePath, problem);
  if (!client) SCLog(kCannotRegister, identifier, descriptionFilePath, problem);
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
  std::string problem;
  LoomerClient* client = registerClient(identifier, path, problem);
  if (!client) systemLog(kCannotRegister, identifier, path, problem);
  return client;
}

void EmbeddedManager::unregisterClient(LoomerClient& client) {
  const String identifier = client.clientIdentifier();
  if (const auto state = _table.find(identifier)) forgetClient(_store, state->id);
  _clients.erase(identifier.toString());
}

std::unique_ptr<LoomerSessionDriver> EmbeddedManager::sessionDriverWithDataSource(
    LoomerSessionDriverDataSource& dataSource) {
  auto driver = std::make_unique<EmbeddedSessionDriver>(*this, dataSource);
  if (!_openHub) return driver;
  return std::make_unique<ExchangingSessionDriver>(std::move(driver),
                                                   std::make_unique<HubExchange>(*this, _openHub));
}

}  // namespace corvane::loomer
