#pragma once

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/account/Account.h"

namespace corvane::pelto {

/// Where the current user's computer keeps what it knows of its account's chain.
std::string userChainPath();

/// The newest commit that this computer knows of the account's chain; that of its invitation before its first
/// exchange.
CommitMark newestKnown(const Account& account);

/// The hub of the current user's account, which is kept at a place. It serves one exchange of at most
/// `seconds`; nothing is sent before the first call.
///
/// Until its first exchange a computer that was invited takes no chain that is older than, or another than,
/// the one that the invitation vouches for: such an exchange raises DotPeltoException.
std::unique_ptr<Hub> makePlaceHub(const Account& account, double seconds);

}  // namespace corvane::pelto
