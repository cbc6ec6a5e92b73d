#include "CorvaneSyncClient/platform/pelto/seal/AccountKey.h"

#include <sodium.h>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

namespace corvane::pelto {

AccountKey AccountKey::random() {
  AccountKey key;
  randombytes_buf(key._bytes.data(), kBytes);
  return key;
}

AccountKey::AccountKey(std::string_view bytes) : _bytes(bytes) {
  if (bytes.size() != kBytes)
    throw PlatformException(NSInvalidArgumentException, "an account key has 32 bytes");
}

bool operator==(const AccountKey& a, const AccountKey& b) {
  return sodium_memcmp(a._bytes.data(), b._bytes.data(), AccountKey::kBytes) == 0;
}

}  // namespace corvane::pelto
