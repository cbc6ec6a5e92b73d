#pragma once

#include <cstddef>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

namespace corvane::pelto {

/// The key of one account in one generation: 32 random bytes. Whoever has it reads everything that the
/// account keeps at its place, and can write there what the other computers believe. Moves only.
class AccountKey {
 public:
  static constexpr std::size_t kBytes = 32;

  /// A new key. Raises std::bad_alloc, and DotPeltoException when the system gives no random numbers.
  static AccountKey random();
  /// The key of these 32 bytes, which the caller wipes. Raises NSInvalidArgumentException for another number
  /// of bytes, and std::bad_alloc.
  explicit AccountKey(std::string_view bytes);

  std::string_view bytes() const { return _bytes.view(); }
  /// In constant time.
  friend bool operator==(const AccountKey& a, const AccountKey& b);

 private:
  AccountKey() : _bytes(kBytes) {}

  SecretBytes _bytes;
};

}  // namespace corvane::pelto
