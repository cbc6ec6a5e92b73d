#pragma once

#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceAddress.h"
#include "CorvaneSyncClient/platform/pelto/seal/Invitation.h"
#include "tools/loomerctl/Input.h"

namespace corvane::loomerctl {

// What the commands on the account share.

/// How long a command may take at the place, in seconds.
inline constexpr double kPlaceSeconds = 60;

/// Asks for what opens the place: nothing for a directory, a password, a bucket's key, a hub's token.
pelto::PlaceCredentials askCredentials(const pelto::PlaceAddress& address, SecretInput& input);

/// The user's account; raises Refused when there is none.
pelto::Account accountOrRefuse();

/// Raises Refused when the user has an account: its key would be lost.
void refuseIfSet();

/// An account with a new key, of which this computer is the first.
pelto::Account newAccountAt(const std::string& address, pelto::PlaceCredentials credentials);
/// The account that the invitation leads to, with this computer as a new one of it. `address` and
/// `credentials` are of the place.
pelto::Account invitedAccount(const pelto::Invitation& invitation, const std::string& address,
                              pelto::PlaceCredentials credentials);

/// Names, in the account's folder, of the commits that the place shows. Raises what the place raises.
std::vector<pelto::PlaceObject> commitsOf(const pelto::Account& account, pelto::Place& place);

}  // namespace corvane::loomerctl
