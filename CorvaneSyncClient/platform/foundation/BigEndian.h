#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace corvane {

/// The unsigned number in `size` bytes (1 to 8), most significant byte first.
inline std::uint64_t loadBigEndian(const char* from, std::size_t size) {
  const auto load = [from](auto number) {
    std::memcpy(&number, from, sizeof number);
    return number;
  };
  static_assert(std::endian::native == std::endian::little);
  switch (size) {
    case 1:
      return static_cast<unsigned char>(*from);
    case 2:
      return __builtin_bswap16(load(std::uint16_t{}));
    case 3:
      return std::uint64_t{__builtin_bswap16(load(std::uint16_t{}))} << 8 |
             static_cast<unsigned char>(from[2]);
    case 4:
      return __builtin_bswap32(load(std::uint32_t{}));
    case 8:
      return __builtin_bswap64(load(std::uint64_t{}));
    default:
      break;
  }
  std::uint64_t number = 0;
  for (std::size_t i = 0; i < size; ++i) number = number << 8 | static_cast<unsigned char>(from[i]);
  return number;
}

/// The same where 8 bytes can be read, whatever the size.
inline std::uint64_t loadBigEndianOfEight(const char* from, std::size_t size) {
  std::uint64_t number;
  std::memcpy(&number, from, sizeof number);
  return __builtin_bswap64(number) >> (64 - 8 * size);
}

/// Writes the low `size` bytes (1 to 8) of `number`, most significant byte first.
inline void storeBigEndian(char* to, std::uint64_t number, std::size_t size) {
  const std::uint64_t swapped = __builtin_bswap64(number << (64 - 8 * size));
  std::memcpy(to, &swapped, size);
}

}  // namespace corvane
