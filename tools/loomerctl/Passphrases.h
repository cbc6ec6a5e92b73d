#pragma once

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/seal/Invitation.h"

namespace corvane::loomerctl {

// Invitations that lie at the place itself, each under its account's passphrase, where somebody without a key
// finds them. All raise what the place raises.

/// The newest invitation that the passphrase opens. Reads one after the other, 20 at most: each takes a
/// second and more to try.
std::optional<pelto::Invitation> invitationUnder(pelto::Place& place, const std::string& passphrase);

/// Puts the invitation under the passphrase, in the place of the account's earlier one. Raises
/// PlatformException for a passphrase that is not fit.
void putUnderPassphrase(pelto::Place& place, const pelto::Account& account,
                        const pelto::Invitation& invitation, const std::string& passphrase);

/// Removes what the account's passphrase opens, of the account's present generation. False when there was
/// nothing.
bool removePassphrase(pelto::Place& place, const pelto::Account& account);

}  // namespace corvane::loomerctl
