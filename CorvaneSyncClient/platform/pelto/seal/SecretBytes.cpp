#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"

#include <sodium.h>

#include <algorithm>
#include <new>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/SCLog.h"

namespace corvane::pelto {

SecretBytes::SecretBytes(std::size_t size) : _size(size), _bytes(nullptr) {
  useSodium();
  _bytes = static_cast<unsigned char*>(sodium_malloc(size));
  if (!_bytes) throw std::bad_alloc();
  // sodium_malloc has tried this and keeps its outcome to itself. Pages may be locked more than once.
  if (sodium_mlock(_bytes, size) != 0)
    SCLog("A key cannot be locked into memory and may be swapped to disk.");
  sodium_memzero(_bytes, size);
}

SecretBytes::SecretBytes(std::string_view bytes) : SecretBytes(bytes.size()) {
  std::copy(bytes.begin(), bytes.end(), _bytes);
}

SecretBytes::SecretBytes(SecretBytes&& other) noexcept
    : _size(std::exchange(other._size, 0)), _bytes(std::exchange(other._bytes, nullptr)) {}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept {
  std::swap(_size, other._size);
  std::swap(_bytes, other._bytes);
  return *this;
}

SecretBytes::~SecretBytes() { sodium_free(_bytes); }

SharedSecret::SharedSecret(std::string_view text)
    : _bytes(text.empty() ? nullptr : std::make_shared<const SecretBytes>(text)) {}

void wipe(std::string& text) {
  sodium_memzero(text.data(), text.size());
  text.clear();
}

void useSodium() {
  if (sodium_init() < 0)
    throw PlatformException("DotPeltoException", Message("The system gives no random numbers."));
}

}  // namespace corvane::pelto
