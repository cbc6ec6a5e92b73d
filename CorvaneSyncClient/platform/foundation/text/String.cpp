#include "CorvaneSyncClient/platform/foundation/text/String.h"

#include <cstring>
#include <limits>
#include <new>
#include <unordered_set>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/RandomBytes.h"
#include "CorvaneSyncClient/platform/foundation/SipHash.h"

namespace corvane {

namespace {

// Files and records come from others, who must not be able to choose keys that all collide: each process
// hashes in a way of its own.
HashKey randomKey() {
  HashKey key;
  takeRandomBytes({reinterpret_cast<char*>(&key), sizeof key});
  return key;
}

}  // namespace

SharedBytes* SharedBytes::makeUninitialized(std::size_t size) {
  if (size > std::numeric_limits<std::uint32_t>::max()) {
    throw PlatformException("NSRangeException", Message("A text or data value may not exceed 4 GiB"));
  }
  void* memory = ::operator new(sizeof(SharedBytes) + size);
  return new (memory) SharedBytes(static_cast<std::uint32_t>(size));
}

SharedBytes* SharedBytes::make(const char* bytes, std::size_t size) {
  SharedBytes* made = makeUninitialized(size);
  if (size > 0) std::memcpy(made->mutableBytes(), bytes, size);
  return made;
}

void SharedBytes::destroy(SharedBytes* bytes) {
  bytes->~SharedBytes();
  ::operator delete(bytes);
}

std::uint32_t SharedBytes::hash() const {
  if (_hash == 0) _hash = hashOf(view());
  return _hash;
}

String interned(const String& key) {
  static std::unordered_set<String> keys;
  return *keys.insert(key).first;
}

std::uint32_t hashOf(std::string_view text) {
  static const HashKey key = randomKey();
  const std::uint64_t wide = sipHash(key, text);
  const auto folded = static_cast<std::uint32_t>(wide ^ (wide >> 32));
  return folded == 0 ? 1 : folded;  // 0 means "not computed yet"
}

}  // namespace corvane
