#pragma once

#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/seal/Roster.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"

namespace corvane::pelto {

// Each computer of an account leaves a card at the place, a sealed roster with itself alone on it, in the
// folder "m" of the account's generation. Only it writes there, so that no slot is needed. A place that
// withholds a card can keep its computer from being handed the next key, and nothing worse.

/// Who has left a card, the newest of each computer. What cannot be opened counts as none. Raises what the
/// place raises.
Roster readCards(Place& place, const Sealer& sealer);

/// Whether a card of the computer's is there. Raises what the place raises.
bool hasCard(Place& place, const Sealer& sealer, const String& computer);

/// Puts cards for these computers, in the place of their earlier ones. Raises what the place raises.
void putCards(Place& place, const Sealer& sealer, const Roster& cards);

}  // namespace corvane::pelto
