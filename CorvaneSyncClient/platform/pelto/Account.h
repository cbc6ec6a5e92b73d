#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane::pelto {

/// How this user reaches the online service.
struct Account {
  std::string url;  ///< `postgresql://…`, the password in it: a secret
  String computer;  ///< this computer's identifier there, an upper-case UUID made with the account
  /// When the service last answered for this URL and computer, to the day; nothing: never yet. Kept in a file
  /// of its own, which `noteAccountReached` writes.
  std::optional<Date> reached;
};

/// Where the account of the user with this home directory is kept.
std::string accountPathForHome(const std::string& homeDirectory);

/// Reads, and raises DotPeltoException where the file is there but cannot be read, is no account, or is open
/// to other users. Nothing when there is no file.
std::optional<Account> readAccount(const std::string& path);
/// Writes the file, readable by the user alone, whole or not at all, but for `reached`. Raises
/// DotPeltoException.
void writeAccount(const std::string& path, const Account& account);
/// Notes that the service answered for this account: beside the account's file and not in it, so that an
/// account that the user sets or removes at the same moment stays as he left it. The note counts for that URL
/// and computer alone. Raises DotPeltoException.
void noteAccountReached(const std::string& path, const Account& account, Date when);
/// Removes the account and the note beside it. False when there was no account. Raises DotPeltoException.
bool removeAccount(const std::string& path);

/// Raises DotPeltoException, saying what is wrong, for an address that is no `postgresql://` URL, or that
/// would carry secrets to another computer without TLS that checks who the server is.
void checkAccountUrl(std::string_view url);
/// Whether there is a password in the URL, which must be one that can be used.
bool holdsPassword(std::string_view url);
/// The URL for people: without password and other secrets.
std::string withoutSecrets(std::string_view url);

}  // namespace corvane::pelto
