#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/seal/AccountKey.h"
#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

/// Seals and opens what one account keeps at its place in one generation.
///
/// A sealed object, a multiple of 1 KiB long:
///
///     1 byte    the form, 1
///     24 bytes  the nonce, random
///     the rest  XChaCha20-Poly1305 (draft-irtf-cfrg-xchacha-03): a zstd frame that tells the size of its
///               contents, then zeros; and 16 bytes of authenticator
///
/// Authenticated with it: account, generation and the object's name, so that no object passes for another.
/// The keys for contents, hashes and folders are derived from the account's key with libsodium's crypto_kdf
/// (keyed BLAKE2b with a context). The Sealer keeps those and not the account's key.
class Sealer {
 public:
  /// `account` is an upper-case UUID. Raises std::bad_alloc.
  Sealer(const AccountKey& key, std::string account, std::int64_t generation);

  const std::string& account() const { return _account; }
  std::int64_t generation() const { return _generation; }

  /// The sealed object of that name. Sealing the same contents twice gives different bytes. Raises
  /// std::bad_alloc.
  std::string seal(std::string_view name, std::string_view contents) const;
  /// The contents of a sealed object. Absent when the bytes are not what this account sealed under that name
  /// in this generation, or when the contents have more than `mostBytes`, which is known before memory is
  /// taken for them.
  std::optional<std::string> open(std::string_view name, std::string_view sealed,
                                  std::size_t mostBytes) const;

  /// 32 bytes of keyed BLAKE2b: of a commit's sealed bytes, for the commit that follows.
  std::string hash(std::string_view bytes) const;
  /// The folder of this account and generation at the place, 32 hexadecimal digits: several accounts can
  /// share a place, and the place does not learn which generations belong to one account.
  std::string folder() const;

 private:
  enum class Subkey : std::size_t { contents, hashes, folders };

  const unsigned char* subkey(Subkey which) const;
  std::string associatedData(std::string_view name) const;

  std::string _account;
  std::int64_t _generation;
  SecretBytes _subkeys;
};

}  // namespace corvane::pelto
