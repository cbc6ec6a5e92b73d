#pragma once

#include <string>

#include "tools/loomerctl/Output.h"
#include "tools/loomerctl/SyncState.h"

namespace corvane::loomerctl {

/// How the newest run of the client ended: "never", "failed", "quiet" or "changed".
const char* outcomeName(const ClientView& view);
/// The same for people: "nothing new", "pushed 3, pulled 12, 1 conflict", ….
std::string outcomeText(const ClientView& view);

/// How many records a client pushed, changing the agreed bookmarks, and how many it pulled. Towards the
/// online service it is this computer that does both.
struct PushedAndPulled {
  std::size_t pushed = 0;
  std::size_t pulled = 0;
};
PushedAndPulled exchangeOf(const loomer::SessionEntry& session);
/// What a session did, for people: "pushed 3, pulled 12".
std::string exchangeText(const loomer::SessionEntry& session, std::size_t conflicts);

/// One screen.
void printStatus(Output& out, const SyncState& state);

}  // namespace corvane::loomerctl
