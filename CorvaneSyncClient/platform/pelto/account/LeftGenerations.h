#pragma once

#include <map>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"

namespace corvane::pelto {

/// Generations that an account has left: the folder of each at the place, and the name there of its last
/// commit, empty for one that was begun and never became the account's.
using LeftGenerations = std::map<std::string, std::string>;

/// Removes what they hold at the place, commits, segments and cards, once nothing of it is younger than
/// thirty days; and passphrases that lead there at once. `now` is by the place's clock. The last commit
/// stays: it hands the next key to a computer that was away, and tells one that was taken out. Answers the
/// folders that hold nothing else any more. Raises what the place raises.
std::vector<std::string> removeLeftBehind(Place& place, const LeftGenerations& left, Date now);

}  // namespace corvane::pelto
