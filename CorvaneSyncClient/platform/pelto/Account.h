#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/Date.h"
#include "CorvaneSyncClient/platform/foundation/String.h"

namespace corvane::pelto {

/// How this user reaches the online service.
struct Account {
  std::string url;  ///< `postgresql://…`, the password in it: a secret
  String computer;  ///< this computer's identifier there, an upper-case UUID made with the account
  std::optional<Date> reached;  ///< when the service last answered, to the day; nothing: never yet
};

/// Where the account of the user with this home directory is kept.
std::string accountPathForHome(const std::string& homeDirectory);

/// Reads, and raises DotPeltoException where the file is there but cannot be read, is no account, or is open
/// to other users. Nothing when there is no file.
std::optional<Account> readAccount(const std::string& path);
/// Writes the file, readable by the user alone, whole or not at all. Raises DotPeltoException.
void writeAccount(const std::string& path, const Account& account);
/// False when there was none. Raises DotPeltoException.
bool removeAccount(const std::string& path);

/// Raises DotPeltoException, saying what is wrong, for an address that is no `postgresql://` URL, or that
/// would carry secrets to another computer without TLS that checks who the server is.
void checkAccountUrl(std::string_view url);
/// The URL for people: without password and other secrets.
std::string withoutSecrets(std::string_view url);

}  // namespace corvane::pelto
