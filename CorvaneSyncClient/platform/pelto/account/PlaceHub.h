#pragma once

#include <memory>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "CorvaneSyncClient/platform/pelto/seal/Roster.h"

namespace corvane::pelto {

/// Where the current user's computer keeps what it knows of its account's chain.
std::string userChainPath();

/// The newest commit that this computer knows of the account's chain; that of its invitation before its first
/// exchange.
CommitMark newestKnown(const Account& account);

/// The object that the next commit of the account's chain will be at the place, as far as this computer knows
/// the chain; absent where nothing is to follow under the account's key.
std::optional<std::string> nextCommitObject(const Account& account);

/// The hub of the current user's account, which is kept at a place. It serves one exchange of at most
/// `seconds`; nothing is sent before the first call.
///
/// Until its first exchange a computer that was invited takes no chain that is older than, or another than,
/// the one that the invitation vouches for: such an exchange raises DotPeltoException. So does one of a
/// computer that was taken out. Where the account has changed its key, the account's file gets the next one,
/// and the exchange goes on with that. Once a week this computer renews its card at the place.
std::unique_ptr<Hub> makePlaceHub(const Account& account, double seconds);

/// Whether the first exchange of a computer that was invited to `account` would be refused: raises
/// DotPeltoException then, and what the place raises. The account's file is not written, and what this
/// computer keeps of the chain is there only if all is well.
void checkJoinable(const Account& account, double seconds);

/// The computers of the account, by their cards; this one is always among them. Raises what the place raises.
Roster computersOf(const Account& account, double seconds);

/// Takes a computer out of the current user's account, or none where `removed` is absent: gives the account a
/// new key, which the others get with their next exchange, and writes it to the account's file. Answers who
/// they are. Raises DotPeltoException when others kept giving meanwhile, or have changed the key themselves;
/// and what the place raises.
Roster changeAccountKey(const Account& account, const String& removed, double seconds);

}  // namespace corvane::pelto
