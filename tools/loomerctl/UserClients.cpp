#include "tools/loomerctl/UserClients.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Paths.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/UserStore.h"

namespace corvane::loomerctl {

namespace {

bool hasFile(const String& client) {
  const auto name = fileNameForClientId(client);
  return name && !name->empty();
}

void addOnce(std::vector<String>& clients, const String& client) {
  if (std::find(clients.begin(), clients.end(), client) == clients.end()) clients.push_back(client);
}

}  // namespace

std::vector<String> namedClients(const std::vector<std::string>& names) {
  std::vector<String> clients;
  for (const std::string& each : names) {
    const String client(each);
    if (!hasFile(client)) {
      throw Refused{
          tr("\"%1\" stands for no bookmarks file: com.keldra.Corvane is the browser's own, and "
             "com.keldra.Corvane.NAME is NAME beside it.",
             each)};
    }
    addOnce(clients, client);
  }
  return clients;
}

std::vector<String> registeredClients() {
  std::vector<String> clients{String(kMainClientId)};
  const auto store = openStoreIfAny();
  if (!store) return clients;
  store->beginReading();
  for (const loomer::ClientState& each : loomer::ClientTable(*store).all()) {
    if (hasFile(each.identifier)) addOnce(clients, each.identifier);
  }
  return clients;
}

std::string bookmarksFileOf(const String& client) {
  return joinedPath(bookmarksDirectory(), fileNameForClientId(client).value_or(""));
}

}  // namespace corvane::loomerctl
