#pragma once

#include <optional>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

// The account's file when the account is kept at a place:
//
//     17 bytes  "corvane account 3"
//     32 bytes  the account's key
//     32 bytes  this computer's secret key
//     2 bytes   the length of what opens the place, most significant first
//     …         that: a password, a secret key or a token
//     the rest  a binary property list with everything else
//
// Keys and secret stand outside of the property list so that they never pass through memory that is not
// wiped. In a file that begins with "corvane account 2", which is read as well, the secret is in the list.

/// Whether the file's bytes begin like that.
bool isMembershipFile(std::string_view bytes);

/// The account in these bytes; absent when they are not exactly of that form.
std::optional<Account> accountInMembershipFile(std::string_view bytes);
/// The other way. Raises DotPeltoException where what opens the place is too long for that form.
SecretBytes membershipFileOf(const Account& account);

}  // namespace corvane::pelto
