#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/pelto/account/FormerGenerations.h"
#include "CorvaneSyncClient/platform/pelto/account/LeftGenerations.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceCredentials.h"
#include "CorvaneSyncClient/platform/pelto/seal/AccountKey.h"
#include "CorvaneSyncClient/platform/pelto/seal/ComputerKeys.h"
#include "CorvaneSyncClient/platform/pelto/seal/Invitation.h"

namespace corvane::pelto {

/// How this computer belongs to an account that is kept at a place. Copies share the keys.
struct Membership {
  PlaceCredentials credentials;
  std::string account;  ///< an upper-case UUID
  std::int64_t generation = 1;
  std::shared_ptr<const AccountKey> key;      ///< of that generation; never null
  std::shared_ptr<const ComputerKeys> keys;   ///< this computer's own pair; never null
  std::string name;                           ///< of this computer, for the account's other computers
  std::set<std::string> enabled;              ///< data classes that this computer syncs
  CommitMark newest;                          ///< a commit that the invitation vouches for
  Date carded = {};                           ///< when this computer last left its card at the place
  LeftGenerations left = {};                  ///< and what they hold is not yet removed
  std::vector<FormerGeneration> former = {};  ///< by ascending number, the last few
};

}  // namespace corvane::pelto
