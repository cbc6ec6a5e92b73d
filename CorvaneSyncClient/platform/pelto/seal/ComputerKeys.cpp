#include "CorvaneSyncClient/platform/pelto/seal/ComputerKeys.h"

#include <sodium.h>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/pelto/seal/Bytes.h"

namespace corvane::pelto {

static_assert(ComputerKeys::kKeyBytes == crypto_box_SECRETKEYBYTES);
static_assert(ComputerKeys::kKeyBytes == crypto_box_PUBLICKEYBYTES);

ComputerKeys ComputerKeys::random() {
  SecretBytes secretKey(kKeyBytes);
  randombytes_buf(secretKey.data(), kKeyBytes);
  return ComputerKeys(secretKey.view());
}

ComputerKeys::ComputerKeys(std::string_view secretKey) : _secretKey(secretKey), _publicKey(kKeyBytes, '\0') {
  if (secretKey.size() != kKeyBytes)
    throw PlatformException(NSInvalidArgumentException, "a computer's secret key has 32 bytes");
  crypto_scalarmult_base(unsignedOf(_publicKey.data()), _secretKey.data());
}

std::optional<SecretBytes> ComputerKeys::open(std::string_view box, std::size_t size) const {
  if (box.size() != size + crypto_box_SEALBYTES) return std::nullopt;
  SecretBytes contents(size);
  if (crypto_box_seal_open(contents.data(), unsignedOf(box.data()), box.size(), unsignedOf(_publicKey.data()),
                           _secretKey.data()) != 0) {
    return std::nullopt;
  }
  return contents;
}

std::optional<std::string> sealedBox(std::string_view publicKey, const SecretBytes& contents) {
  useSodium();
  if (publicKey.size() != ComputerKeys::kKeyBytes) return std::nullopt;
  std::string box(contents.size() + crypto_box_SEALBYTES, '\0');
  if (crypto_box_seal(unsignedOf(box.data()), contents.data(), contents.size(),
                      unsignedOf(publicKey.data())) != 0)
    return std::nullopt;
  return box;
}

}  // namespace corvane::pelto
