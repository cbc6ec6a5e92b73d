#include "CorvaneSyncClient/platform/pelto/seal/Passphrase.h"

#include <sodium.h>
#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"
#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"
#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

namespace {

constexpr char kObjectForm = 1;
constexpr std::size_t kCostBytes = 4;
constexpr std::size_t kSaltBytes = crypto_pwhash_argon2id_SALTBYTES;
constexpr std::size_t kKeyBytes = crypto_aead_xchacha20poly1305_ietf_KEYBYTES;
constexpr std::size_t kCommitmentBytes = 32;
constexpr std::size_t kNonceBytes = crypto_aead_xchacha20poly1305_ietf_NPUBBYTES;
constexpr std::size_t kSaltAt = 1 + 2 * kCostBytes;
constexpr std::size_t kCommitmentAt = kSaltAt + kSaltBytes;
constexpr std::size_t kNonceAt = kCommitmentAt + kCommitmentBytes;
constexpr std::size_t kCipherAt = kNonceAt + kNonceBytes;
constexpr std::size_t kObjectBytes = 1024;
constexpr std::size_t kPlainBytes = kObjectBytes - kCipherAt - crypto_aead_xchacha20poly1305_ietf_ABYTES;

constexpr std::uint32_t kMostPasses = 10;
constexpr std::uint32_t kLeastKibibytes = 8 * 1024;
constexpr std::uint32_t kMostKibibytes = 1024 * 1024;

[[noreturn]] void refuse(const Message& reason) {
  throw PlatformException("DotPeltoPassphraseException", reason);
}

struct WipingFree {
  void operator()(utf8proc_uint8_t* text) const {
    sodium_memzero(text, std::char_traits<char>::length(reinterpret_cast<const char*>(text)));
    std::free(text);
  }
};

// In normalization form C.
SecretBytes composed(std::string_view passphrase) {
  utf8proc_uint8_t* text = nullptr;
  const utf8proc_ssize_t size =
      utf8proc_map(unsignedOf(passphrase.data()), static_cast<utf8proc_ssize_t>(passphrase.size()), &text,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  if (size < 0) refuse(Message("The passphrase is not UTF-8 text."));
  const std::unique_ptr<utf8proc_uint8_t, WipingFree> owned(text);
  return SecretBytes(std::string_view(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size)));
}

std::size_t characters(std::string_view utf8) {
  return static_cast<std::size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

// Key and commitment, one after the other.
SecretBytes derived(std::string_view passphrase, std::string_view salt, const PassphraseCost& cost) {
  const SecretBytes text = composed(passphrase);
  SecretBytes keys(kKeyBytes + kCommitmentBytes);
  if (crypto_pwhash(keys.data(), keys.size(), text.view().data(), text.size(), unsignedOf(salt.data()),
                    cost.passes, std::size_t{cost.kibibytes} * 1024, crypto_pwhash_ALG_ARGON2ID13) != 0) {
    refuse(Message(
        "There is not enough memory for the passphrase: it takes as much on purpose, so that guessing is "
        "costly."));
  }
  return keys;
}

bool isTakenOn(const PassphraseCost& cost) {
  return cost.passes >= 1 && cost.passes <= kMostPasses && cost.kibibytes >= kLeastKibibytes &&
         cost.kibibytes <= kMostKibibytes;
}

}  // namespace

std::string sealUnderPassphrase(const Invitation& invitation, std::string_view passphrase,
                                const PassphraseCost& cost) {
  useSodium();
  if (characters(composed(passphrase).view()) < kShortestPassphrase)
    refuse(Message(
        "The passphrase is too short: it takes 12 characters, better five or six words that no book has "
        "in a row."));
  const SecretBytes bytes = bytesOf(invitation);
  if (bytes.size() > kPlainBytes) refuse(Message("The address of the place is too long for a passphrase."));
  SecretBytes plain(kPlainBytes);
  std::copy_n(bytes.data(), bytes.size(), plain.data());

  std::string object(kObjectBytes, '\0');
  object[0] = kObjectForm;
  storeBigEndian(object.data() + 1, cost.passes, kCostBytes);
  storeBigEndian(object.data() + 1 + kCostBytes, cost.kibibytes, kCostBytes);
  randombytes_buf(object.data() + kSaltAt, kSaltBytes);
  const SecretBytes keys = derived(passphrase, std::string_view(object).substr(kSaltAt, kSaltBytes), cost);
  std::copy_n(keys.data() + kKeyBytes, kCommitmentBytes, object.data() + kCommitmentAt);
  unsigned char* const start = unsignedOf(object.data());
  randombytes_buf(start + kNonceAt, kNonceBytes);
  crypto_aead_xchacha20poly1305_ietf_encrypt(start + kCipherAt, nullptr, plain.data(), plain.size(), start,
                                             kNonceAt, nullptr, start + kNonceAt, keys.data());
  return object;
}

std::optional<Invitation> openWithPassphrase(std::string_view object, std::string_view passphrase) {
  useSodium();
  if (object.size() != kObjectBytes || object[0] != kObjectForm) return std::nullopt;
  const auto number = [&](std::size_t at) {
    return static_cast<std::uint32_t>(loadBigEndian(object.data() + at, kCostBytes));
  };
  const PassphraseCost cost{number(1), number(1 + kCostBytes)};
  if (!isTakenOn(cost)) return std::nullopt;
  const SecretBytes keys = derived(passphrase, object.substr(kSaltAt, kSaltBytes), cost);
  if (sodium_memcmp(keys.data() + kKeyBytes, object.data() + kCommitmentAt, kCommitmentBytes) != 0)
    return std::nullopt;
  SecretBytes plain(kPlainBytes);
  const unsigned char* const start = unsignedOf(object.data());
  if (crypto_aead_xchacha20poly1305_ietf_decrypt(plain.data(), nullptr, nullptr, start + kCipherAt,
                                                 kObjectBytes - kCipherAt, start, kNonceAt, start + kNonceAt,
                                                 keys.data()) != 0) {
    return std::nullopt;
  }
  return invitationIn(plain.view());
}

}  // namespace corvane::pelto
