#pragma once

#include <cstdint>
#include <string_view>

namespace corvane {

/// What makes a hash function one of 2^128.
struct HashKey {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
};

/// SipHash-1-3: a hash that nobody who does not know `key` can find collisions for (J.-P. Aumasson and
/// D. J. Bernstein, "SipHash: a fast short-input PRF", INDOCRYPT 2012; one round for each word, three at the
/// end). Takes words as this machine stores them.
std::uint64_t sipHash(const HashKey& key, std::string_view bytes);

}  // namespace corvane
