#include "CorvaneSyncClient/platform/loomer/session/ClientRegistry.h"

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/loomer/api/ClientDescription.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

EmbeddedClient* ClientRegistry::find(const String& identifier) {
  const std::string key = identifier.toString();
  const auto state = identifier ? _table.find(identifier) : std::nullopt;
  if (!state) {
    _clients.erase(key);
    return nullptr;
  }
  std::unique_ptr<EmbeddedClient>& client = _clients[key];
  if (!client || client->row() != state->id) {
    client = std::make_unique<EmbeddedClient>(_store, identifier, state->id);
  }
  return client.get();
}

EmbeddedClient* ClientRegistry::registerClient(const String& identifier,
                                               const std::string& descriptionFilePath, Message& problem) {
  const auto description = readClientDescription(descriptionFilePath, problem);
  if (!description) return nullptr;
  if (identifier.empty()) {
    problem = Message("the client has no identifier");
    return nullptr;
  }
  return &registerClient(identifier, *description);
}

EmbeddedClient& ClientRegistry::registerClient(const String& identifier, const Dictionary& description) {
  _table.enter(identifier, description, Platform::current().clock.now());
  if (EmbeddedClient* client = find(identifier)) return *client;
  throw LoomerStoreException(
      _store.path(),
      Message("the client %1 was unregistered by another process while it was being registered",
              identifier.toString()),
      Message("Sync again."));
}

void ClientRegistry::unregisterClient(LoomerClient& client) {
  const String identifier = client.clientIdentifier();
  if (const auto state = _table.find(identifier)) forgetClient(_store, *state);
  _clients.erase(identifier.toString());
}

}  // namespace corvane::loomer
