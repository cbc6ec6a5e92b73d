#include "tools/corvane-hub/ComputerToken.h"

#include <openssl/crypto.h>
#include <openssl/sha.h>
#include <sys/random.h>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tools/corvane-hub/HubFailure.h"
#include "tools/corvane-hub/ObjectNames.h"

namespace corvane::hubserver {

namespace {

constexpr std::string_view kRevoked = "revoked ";

std::string hexOf(const SecretHash& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::optional<SecretHash> bytesOf(std::string_view hex) {
  SecretHash bytes;
  if (hex.size() != 2 * bytes.size()) return {};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = hexDigitValue(hex[2 * i]);
    const int low = hexDigitValue(hex[2 * i + 1]);
    if (high < 0 || low < 0) return {};
    bytes[i] = static_cast<std::uint8_t>(high * 16 + low);
  }
  return bytes;
}

SecretHash hashOf(const SecretHash& secret) {
  SecretHash hash;
  SHA256(secret.data(), secret.size(), hash.data());
  return hash;
}

}  // namespace

std::optional<ComputerToken> parsedToken(std::string_view text) {
  const std::size_t first = text.find('.');
  if (first == std::string_view::npos) return {};
  const std::size_t second = text.find('.', first + 1);
  if (second == std::string_view::npos) return {};
  const std::string_view account = text.substr(0, first);
  const std::string_view computer = text.substr(first + 1, second - first - 1);
  const std::optional<SecretHash> secret = bytesOf(text.substr(second + 1));
  if (!isPrincipalName(account) || !isPrincipalName(computer) || !secret) return {};
  return ComputerToken{std::string(account), std::string(computer), hashOf(*secret)};
}

NewToken newToken(const std::string& account, const std::string& computer) {
  SecretHash secret;
  // Up to 256 bytes come whole, and are waited for where the machine has just started.
  const ssize_t count = retryingInterrupted([&] { return ::getrandom(secret.data(), secret.size(), 0); });
  if (count != static_cast<ssize_t>(secret.size()))
    throw HubFailure(tr("no random bytes"), lastSystemError());
  return {account + '.' + computer + '.' + hexOf(secret), hashOf(secret)};
}

std::string textOf(const TokenRecord& record) {
  return std::string(record.revoked ? kRevoked : "") + hexOf(record.hash) + '\n';
}

std::optional<TokenRecord> parsedTokenRecord(std::string_view text) {
  TokenRecord record;
  record.revoked = text.starts_with(kRevoked);
  if (record.revoked) text.remove_prefix(kRevoked.size());
  if (!text.ends_with('\n')) return {};
  text.remove_suffix(1);
  const std::optional<SecretHash> hash = bytesOf(text);
  if (!hash) return {};
  record.hash = *hash;
  return record;
}

bool equalHashes(const SecretHash& a, const SecretHash& b) {
  return CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

}  // namespace corvane::hubserver
