#pragma once

#include <map>
#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/loomer/session/EmbeddedClient.h"

namespace corvane::loomer {

/// The clients that are registered in a store. Owns the objects that stand for them.
class ClientRegistry {
 public:
  /// `store` must outlive this object.
  explicit ClientRegistry(TruthStore& store) : _store(store) {}

  /// The store that they are registered in.
  TruthStore& store() { return _store; }

  /// Valid until the client is unregistered; null when there is no such client. Another process may have
  /// registered or unregistered it.
  EmbeddedClient* find(const String& identifier);
  /// Registers the client that the description file describes, or renews the description of the registered
  /// one. Null, with the cause in `problem`, when the description cannot be used.
  EmbeddedClient* registerClient(const String& identifier, const std::string& descriptionFilePath,
                                 Message& problem);
  /// As above, with the description itself.
  EmbeddedClient& registerClient(const String& identifier, const Dictionary& description);
  /// `client` is gone afterwards.
  void unregisterClient(LoomerClient& client);

 private:
  TruthStore& _store;
  ClientTable _table{_store};
  std::map<std::string, std::unique_ptr<EmbeddedClient>> _clients;  // by identifier; those asked for
};

}  // namespace corvane::loomer
