#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane {
namespace {

// Vectors of another implementation: Python's hash(bytes) with a zero key (PYTHONHASHSEED=0).
TEST(SipHash, GivesThePublishedAnswers) {
  const struct {
    const char* text;
    std::uint64_t expected;
  } rows[] = {
      {"a", 0x407448D2B89B1813U},
      {"abcdefg", 0x6DB12AAE9070F506U},
      {"abcdefgh", 0x3F7B849C0B8E35EAU},
      {"4E2B5A1C-0D3F-4A68-9B7C-1122334455AA", 0xC3347B78D5332E3BU},
  };
  for (const auto& row : rows) EXPECT_EQ(sipHash({}, row.text), row.expected) << row.text;
}

TEST(SipHash, EveryBitOfTheKeyAndEveryByteOfTheTextCount) {
  std::set<std::uint64_t> hashes;
  const std::string text = "4E2B5A1C-0D3F-4A68-9B7C-1122334455AA";
  hashes.insert(sipHash({}, text));
  for (int bit = 0; bit < 64; ++bit) {
    hashes.insert(sipHash({std::uint64_t{1} << bit, 0}, text));
    hashes.insert(sipHash({0, std::uint64_t{1} << bit}, text));
  }
  for (std::size_t at = 0; at < text.size(); ++at) {
    std::string other = text;
    other[at] ^= 1;
    hashes.insert(sipHash({}, other));
    hashes.insert(sipHash({}, text.substr(0, at)));
  }
  EXPECT_EQ(hashes.size(), 1 + 128 + 2 * text.size());
}

// Texts of 16 bytes that the standard library's hash, which has a fixed seed, all sends to one number: each
// of its steps can be undone, so that the second half can be chosen to fit the first.
std::vector<std::string> textsThatCollide(std::size_t count) {
  constexpr std::uint64_t kFactor = 0xC6A4A7935BD1E995U;
  std::uint64_t inverse = kFactor;
  for (int i = 0; i < 6; ++i) inverse *= 2 - kFactor * inverse;
  const auto shifted = [](std::uint64_t word) { return word ^ (word >> 47); };  // its own inverse
  std::vector<std::string> texts;
  for (std::uint64_t first = 0; first < count; ++first) {
    const std::uint64_t start = 0xC70F6907U ^ (16 * kFactor);
    const std::uint64_t between = (start ^ (shifted(first * kFactor) * kFactor)) * kFactor;
    const std::uint64_t second = shifted(between * inverse) * inverse;  // makes the sum of both halves 0
    std::string text(16, '\0');
    std::memcpy(text.data(), &first, 8);
    std::memcpy(text.data() + 8, &second, 8);
    texts.push_back(text);
  }
  return texts;
}

TEST(String, TextsChosenToCollideDoNot) {
  const std::vector<std::string> texts = textsThatCollide(40'000);
  std::set<std::size_t> fixed;
  std::set<std::uint32_t> own;
  for (const std::string& text : texts) {
    fixed.insert(std::hash<std::string>()(text));
    own.insert(hashOf(text));
  }
  ASSERT_EQ(fixed.size(), 1U) << "the texts must collide in a hash of a fixed seed";
  EXPECT_GT(own.size(), 39'990U);  // of 32 bits, a few may
}

}  // namespace
}  // namespace corvane
