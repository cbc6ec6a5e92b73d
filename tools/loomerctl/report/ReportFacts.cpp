#include <algorithm>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/report/ReportSections.h"

namespace corvane::loomerctl {

using namespace loomer;

std::string ReportFacts::clientName(const String& identifier) const {
  const std::vector<ClientView>& clients = sync.clients;
  const auto client = std::find_if(clients.begin(), clients.end(), [&](const ClientView& each) {
    return each.state.identifier == identifier;
  });
  return client == clients.end() ? printable(identifier.view()) : shortNameText(clients, *client);
}

std::size_t ReportFacts::conflictsIn(const SessionEntry& session) const {
  return static_cast<std::size_t>(std::count_if(
      losses.begin(), losses.end(), [&](const LostValue& each) { return each.session.id == session.id; }));
}

ReportFacts reportFacts(TruthStore& store) {
  BookmarksFiles files;
  ReportFacts facts{
      store, Platform::current().clock.now(), syncState(store, files), {}, {}, ReportTree(store)};
  SessionLog log(store);
  log.newestFirst([&](const SessionEntry& session) {
    facts.sessions.push_back(session);
    return true;
  });
  for (const SessionEntry& session : facts.sessions) {
    for (Loss& each : log.losses(session.id)) facts.losses.push_back({session, std::move(each)});
  }
  return facts;
}

}  // namespace corvane::loomerctl
