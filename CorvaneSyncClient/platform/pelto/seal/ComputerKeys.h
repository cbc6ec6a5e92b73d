#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

/// A computer's own key pair (X25519, RFC 7748): whoever knows its public key can hand it what no other
/// computer can read. Moves only.
class ComputerKeys {
 public:
  static constexpr std::size_t kKeyBytes = 32;

  /// A new pair. Raises std::bad_alloc, and DotPeltoException when the system gives no random numbers.
  static ComputerKeys random();
  /// The pair of this secret key, which the caller wipes. Raises NSInvalidArgumentException unless it has
  /// `kKeyBytes`, and std::bad_alloc.
  explicit ComputerKeys(std::string_view secretKey);

  const std::string& publicKey() const { return _publicKey; }
  std::string_view secretKey() const { return _secretKey.view(); }

  /// What `sealedBox` put into the box for this computer; absent for anything else. `size` is the number of
  /// bytes that it must hold.
  std::optional<SecretBytes> open(std::string_view box, std::size_t size) const;

 private:
  SecretBytes _secretKey;
  std::string _publicKey;
};

/// A box that only the owner of the public key (of `kKeyBytes`) can open: libsodium's crypto_box_seal. Does
/// not tell who made it. Absent for a public key that no computer can have.
std::optional<std::string> sealedBox(std::string_view publicKey, const SecretBytes& contents);

}  // namespace corvane::pelto
