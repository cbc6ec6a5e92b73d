#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/pelto/account/Membership.h"

namespace corvane::pelto {

/// How this user reaches the online service.
struct Account {
  std::string url;  ///< the place's address
  String computer;  ///< this computer's identifier there, an upper-case UUID made when the account was set
  /// When the service last answered for this URL and computer, to the day; absent before it ever has. Kept in
  /// a file of its own, which `noteAccountReached` writes.
  std::optional<Date> reached;
  Membership membership;
};

/// The path of the account's file in that home directory.
std::string accountPathForHome(const std::string& homeDirectory);

/// The path of what this computer keeps of the account's chain, beside the account's file.
std::string chainPathBeside(const std::string& accountPath);
/// The same of the chain of a generation that the account has left; one path for many of them.
std::string formerChainPathBeside(const std::string& accountPath, std::int64_t generation);

/// Reads the account; absent when there is no file. Raises DotPeltoException when the file cannot be read,
/// does not hold an account, holds one at a PostgreSQL server, as earlier versions had, or is accessible to
/// other users.
std::optional<Account> readAccount(const std::string& path);
/// Writes the account without `reached`, atomically, to a file that only the user can read. What changes that
/// file or removes it, here and below, waits for others of the user's processes that do; one that has to wait
/// for ten seconds raises DotPeltoException, as for whatever else fails.
void writeAccount(const std::string& path, const Account& account);
/// Reads the account, lets `change` change its membership, and writes it. Nothing happens when there is no
/// account by now, or not the one that `account` and `computer` name. No other process's change is lost by
/// it. Raises DotPeltoException.
void changeMembership(const std::string& path, const Account& account,
                      const std::function<void(Membership&)>& change);
/// Notes that the service answered for this account. The note is a file beside the account's, so that it
/// cannot overwrite an account that the user sets or removes at the same moment. It is valid for that URL and
/// computer only. Raises DotPeltoException.
void noteAccountReached(const std::string& path, const Account& account, Date when);
/// Removes what is kept of the account's chains beside that file. Raises DotPeltoException.
void forgetChain(const std::string& accountPath);
/// Removes the account with the note and what is kept of its chains beside it. False when there was no
/// account. Raises DotPeltoException.
bool removeAccount(const std::string& path);

}  // namespace corvane::pelto
