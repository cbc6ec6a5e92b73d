#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane {

// What the reader and the writer of the binary flavour share: its two ends, and how wide its numbers are.

inline constexpr std::string_view kBinaryHeader = "bplist00";
inline constexpr std::size_t kBinaryTrailerSize = 32;

struct BinaryTrailer {
  std::size_t offsetSize = 0;     ///< bytes of an offset, 1 to 8
  std::size_t referenceSize = 0;  ///< bytes of an object's number, 1 to 8
  std::uint64_t count = 0;        ///< of objects
  std::uint64_t top = 0;          ///< the number of the object that is the whole
  std::uint64_t table = 0;        ///< where the offset table stands; objects lie before it
};

/// The bytes that the flavour's numbers are written in: the least of 1, 2, 4 and 8 that hold `number`. Other
/// widths may stand for offsets and object numbers, but many readers refuse them.
constexpr std::size_t binaryWidthFor(std::uint64_t number) {
  return number <= 0xFF ? 1 : number <= 0xFFFF ? 2 : number <= 0xFFFFFFFF ? 4 : 8;
}

/// Raises PropertyListException for a fault at `offset`.
[[noreturn]] void failBinary(std::uint64_t offset, const Message& cause);

/// Reads the trailer and checks all of it and the header, before anything is allocated by its numbers. Raises
/// PropertyListException.
BinaryTrailer readBinaryTrailer(std::string_view bytes);

}  // namespace corvane
