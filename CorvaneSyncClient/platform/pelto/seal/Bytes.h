#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvane::pelto {

// What the functions of libsodium are given: bytes as it counts them, and texts that no two lists of parts
// share.

inline const unsigned char* unsignedOf(const char* bytes) {
  return reinterpret_cast<const unsigned char*>(bytes);
}
inline unsigned char* unsignedOf(char* bytes) { return reinterpret_cast<unsigned char*>(bytes); }

/// Eight bytes, most significant first.
std::string bigEndian(std::int64_t number);

/// The text behind its length in eight bytes.
std::string lengthPrefixed(std::string_view text);

/// Lower-case hexadecimal digits.
std::string hexadecimal(std::string_view bytes);

inline constexpr std::size_t kHashKeyBytes = 32;

/// `size` bytes (16 to 64) of keyed BLAKE2b (RFC 7693). `key` has `kHashKeyBytes`.
std::string keyedHash(std::size_t size, const unsigned char* key, std::string_view bytes);

}  // namespace corvane::pelto
