#include "CorvaneSyncClient/platform/foundation/SipHash.h"

#include <bit>
#include <cstring>

namespace corvane {

namespace {

struct State {
  std::uint64_t v0, v1, v2, v3;

  void round() {
    v0 += v1;
    v2 += v3;
    v1 = std::rotl(v1, 13) ^ v0;
    v3 = std::rotl(v3, 16) ^ v2;
    v0 = std::rotl(v0, 32);
    v2 += v1;
    v0 += v3;
    v1 = std::rotl(v1, 17) ^ v2;
    v3 = std::rotl(v3, 21) ^ v0;
    v2 = std::rotl(v2, 32);
  }

  void take(std::uint64_t word) {
    v3 ^= word;
    round();
    v0 ^= word;
  }
};

}  // namespace

std::uint64_t sipHash(const HashKey& key, std::string_view bytes) {
  // "somepseudorandomlygeneratedbytes", the constants of the paper.
  State state{key.low ^ 0x736f6d6570736575U, key.high ^ 0x646f72616e646f6dU, key.low ^ 0x6c7967656e657261U,
              key.high ^ 0x7465646279746573U};
  const std::uint64_t size = bytes.size();
  for (; bytes.size() >= sizeof(std::uint64_t); bytes.remove_prefix(sizeof(std::uint64_t))) {
    std::uint64_t word;
    std::memcpy(&word, bytes.data(), sizeof word);
    state.take(word);
  }
  std::uint64_t last = size << 56;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    last |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
  }
  state.take(last);
  state.v2 ^= 0xFF;
  for (int i = 0; i < 3; ++i) state.round();
  return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

}  // namespace corvane
