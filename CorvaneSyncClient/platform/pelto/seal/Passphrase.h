#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/seal/Invitation.h"

namespace corvane::pelto {

/// What guessing a passphrase once costs.
struct PassphraseCost {
  std::uint32_t passes = 3;
  std::uint32_t kibibytes = 256 * 1024;
};

/// Fewer characters than this are no passphrase: whoever keeps the place may guess as long as he likes.
inline constexpr std::size_t kShortestPassphrase = 12;

/// The folder of a place in which such objects lie, where somebody without a key finds them. The name of each
/// begins with the folder of its account's generation.
inline constexpr const char* kPassphraseFolder = "passphrase";

/// An invitation, under a passphrase instead of in somebody's hands. An object of 1 KiB:
///
///     1 byte    the form, 1
///     8 bytes   passes and KiB of memory, four bytes each, most significant first
///     16 bytes  salt
///     32 bytes  the second half of what Argon2id (RFC 9106) makes of the passphrase: an object that several
///               passphrases opened would tell whoever made it which of them was tried
///     24 bytes  the nonce
///     the rest  XChaCha20-Poly1305, with the first half as its key and all before the nonce authenticated:
///               the invitation's bytes, then zeros
///
/// The passphrase is taken as UTF-8 in normalization form C, as keyboards differ in how they compose letters.
/// Raises PlatformException for a passphrase that is too short or no UTF-8, for an invitation that does not
/// fit, and where there is not enough memory.
std::string sealUnderPassphrase(const Invitation& invitation, std::string_view passphrase,
                                const PassphraseCost& cost = {});

/// Absent when it is not the passphrase, the object is damaged, or it asks for more than 1 GiB of memory or
/// 10 passes. Raises PlatformException as above.
std::optional<Invitation> openWithPassphrase(std::string_view object, std::string_view passphrase);

}  // namespace corvane::pelto
