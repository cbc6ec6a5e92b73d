#pragma once

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/loomer/api/LoomerManager.h"
#include "CorvaneSyncClient/platform/loomer/hub/HubExchange.h"
#include "CorvaneSyncClient/platform/loomer/session/ClientRegistry.h"

namespace corvane::loomer {

/// The engine in this process, over one store.
class EmbeddedManager : public LoomerManager {
 public:
  /// Opens the store, making it where there is none. Raises LoomerStoreException.
  explicit EmbeddedManager(const std::string& storePath);

  EmbeddedClient* clientWithIdentifier(const String& identifier) override;
  LoomerClient* registerClientWithIdentifier(const String& identifier,
                                             const std::string& descriptionFilePath) override;
  LoomerClient* registerClientWithIdentifier(const String& identifier, const String& descriptionBundleId,
                                             const std::string& descriptionBundleRelativePath) override;
  void unregisterClient(LoomerClient& client) override;
  LoomerNews newsForClient(const String& identifier) override;
  std::unique_ptr<LoomerSessionDriver> sessionDriverWithDataSource(
      LoomerSessionDriverDataSource& dataSource) override;

  /// From here on sessions run between two exchanges with the online service.
  void useHub(HubOpener openHub) { _openHub = std::move(openHub); }

  /// The store that it opened.
  TruthStore& store() { return _store; }
  /// The clients that are registered there.
  ClientRegistry& clients() { return _clients; }

 private:
  TruthStore _store;
  ClientRegistry _clients{_store};
  HubOpener _openHub;
};

}  // namespace corvane::loomer
