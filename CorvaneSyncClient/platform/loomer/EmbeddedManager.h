#pragma once

#include <map>
#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/loomer/EmbeddedClient.h"
#include "CorvaneSyncClient/platform/loomer/HubExchange.h"
#include "CorvaneSyncClient/platform/loomer/LoomerManager.h"

namespace corvane::loomer {

/// Where the store of the user with this home directory stands.
std::string storePathForHome(const std::string& homeDirectory);

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
  /// As `registerClientWithIdentifier:descriptionFilePath:`, with the cause given to the caller in place of
  /// the log.
  EmbeddedClient* registerClient(const String& identifier, const std::string& descriptionFilePath,
                                 std::string& problem);
  void unregisterClient(LoomerClient& client) override;
  std::unique_ptr<LoomerSessionDriver> sessionDriverWithDataSource(
      LoomerSessionDriverDataSource& dataSource) override;

  /// From here on sessions run between two exchanges with the online service.
  void useHub(HubOpener openHub) { _openHub = std::move(openHub); }

  TruthStore& store() { return _store; }

 private:
  TruthStore _store;
  ClientTable _table{_store};
  HubOpener _openHub;
  std::map<std::string, std::unique_ptr<EmbeddedClient>>
      _clients;  // by identifier; those that were asked for
};

}  // namespace corvane::loomer
