#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "tests/kit/TestSize.h"

// What the fuzzer of the merge does, with bytes from a generator of fixed seed: small numbers for the most
// part, so that records meet. A merge that is not sound ends the program.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

TEST(CrazyInputs, AnyThreeTreesMerge) {
  constexpr int kInputs = corvane::sized(20'000, 2'000);
  std::mt19937 random(20'040'601);
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < kInputs; ++i) {
    bytes.resize(50 + random() % 350);
    const unsigned limit = random() % 4 == 0 ? 256 : 16;
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random() % limit);
    ASSERT_EQ(LLVMFuzzerTestOneInput(bytes.data(), bytes.size()), 0);
  }
}

}  // namespace
