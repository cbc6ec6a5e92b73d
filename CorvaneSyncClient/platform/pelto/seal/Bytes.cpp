#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"

#include <sodium.h>

#include "CorvaneSyncClient/platform/foundation/BigEndian.h"

namespace corvane::pelto {

static_assert(kHashKeyBytes == crypto_generichash_KEYBYTES);

std::string bigEndian(std::int64_t number) {
  std::string bytes(sizeof number, '\0');
  storeBigEndian(bytes.data(), static_cast<std::uint64_t>(number), sizeof number);
  return bytes;
}

std::string lengthPrefixed(std::string_view text) {
  return bigEndian(static_cast<std::int64_t>(text.size())) += text;
}

std::string hexadecimal(std::string_view bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string digits;
  for (const char byte : bytes) {
    digits += kDigits[static_cast<unsigned char>(byte) >> 4];
    digits += kDigits[static_cast<unsigned char>(byte) & 15];
  }
  return digits;
}

std::string keyedHash(std::size_t size, const unsigned char* key, std::string_view bytes) {
  std::string hash(size, '\0');
  crypto_generichash(unsignedOf(hash.data()), size, unsignedOf(bytes.data()), bytes.size(), key,
                     kHashKeyBytes);
  return hash;
}

}  // namespace corvane::pelto
