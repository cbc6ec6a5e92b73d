#include "CorvaneSyncClient/platform/loomer/hub/PushTable.h"

#include "CorvaneSyncClient/platform/loomer/hub/StoredUuid.h"
#include "CorvaneSyncClient/platform/loomer/store/Database.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

namespace {
constexpr const char* kReadPushes =
    MessageText<1>("cannot read which pushes made the online service's state: %1").english();
constexpr const char* kWritePushes =
    MessageText<1>("cannot note which pushes made the online service's state: %1").english();
}  // namespace

std::unordered_set<String> PushTable::readAll() {
  Statement query = _store.database().query("SELECT push FROM pushes WHERE client = ?", kReadPushes);
  std::unordered_set<String> pushes;
  query.open(_client);
  while (query.next()) pushes.insert(uuidFrom(query.blob(0)));
  return pushes;
}

std::vector<pelto::HubState> PushTable::learnedAfter(std::int64_t session, const String& account,
                                                     std::size_t most) {
  Statement query = _store.database().query(
      "SELECT revision, push FROM pushes WHERE client = ? AND session > ?"
      " ORDER BY session DESC, revision DESC LIMIT ?",
      kReadPushes);
  std::vector<pelto::HubState> states;
  query.open(_client, session, static_cast<std::int64_t>(most));
  while (query.next()) states.push_back({account, query.integer(0), uuidFrom(query.blob(1))});
  return states;
}

void PushTable::add(const pelto::HubState& state, std::int64_t session) {
  const std::string push = storedUuid(state.pushId);
  if (push == storedUuid(String())) return;  // the account's beginning
  _store.database()
      .query("INSERT OR IGNORE INTO pushes(client, push, revision, session) VALUES(?, ?, ?, ?)", kWritePushes)
      .run(_client, Blob{push}, state.revision, session);
}

}  // namespace corvane::loomer
