#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::hubserver {

/// SHA-256 of a token's secret, which is all that the server keeps of it: 256 random bits need no slower
/// hash.
using SecretHash = std::array<std::uint8_t, 32>;

/// What a computer shows to be let in: "ACCOUNT.COMPUTER.SECRET". The account stands in front, where a proxy
/// can go by it.
struct ComputerToken {
  std::string account;
  std::string computer;
  SecretHash hash;
};

/// What stands in a token; absent for other text.
std::optional<ComputerToken> parsedToken(std::string_view text);

/// A new token and the hash to keep of it. Raises HubFailure when the system has no random bytes.
struct NewToken {
  std::string text;
  SecretHash hash;
};
NewToken newToken(const std::string& account, const std::string& computer);

/// What is stored of a token: the hash, and whether it still lets anybody in.
struct TokenRecord {
  SecretHash hash;
  bool revoked = false;
};
std::string textOf(const TokenRecord& record);
/// Absent for text that `textOf` does not make.
std::optional<TokenRecord> parsedTokenRecord(std::string_view text);

/// Takes the same time whatever the hashes hold.
bool equalHashes(const SecretHash& a, const SecretHash& b);

}  // namespace corvane::hubserver
