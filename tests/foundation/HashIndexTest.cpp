#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/HashIndex.h"

namespace corvane {
namespace {

// Texts without a repetition, found by a hash that the test chooses.
class Texts {
 public:
  explicit Texts(std::uint32_t hashes) : _hashes(hashes) {}

  std::uint32_t find(int number) const {
    return _index.find(hash(number), [&](std::uint32_t place) { return _texts[place] == text(number); });
  }
  void add(int number) {
    _index.enter(hash(number), _texts.size());
    _texts.push_back(text(number));
  }
  HashIndex& index() { return _index; }

 private:
  static std::string text(int number) { return "text " + std::to_string(number); }
  std::uint32_t hash(int number) const { return static_cast<std::uint32_t>(number) % _hashes; }

  std::uint32_t _hashes;
  std::vector<std::string> _texts;
  HashIndex _index;
};

void expectEachAtItsPlace(const Texts& texts, int count) {
  for (int number = 0; number < count; ++number)
    ASSERT_EQ(texts.find(number), static_cast<std::uint32_t>(number)) << number;
  EXPECT_EQ(texts.find(count), HashIndex::kNowhere);
}

TEST(HashIndex, FindsEachItemAtItsPlaceWhateverTheirHashes) {
  for (const std::uint32_t hashes : {1U, 7U, 1U << 20}) {
    Texts texts(hashes);
    EXPECT_EQ(texts.find(0), HashIndex::kNowhere);
    for (int count = 0; count < 1000; ++count) {
      ASSERT_EQ(texts.find(count), HashIndex::kNowhere) << count << " of " << hashes;
      texts.add(count);
    }
    expectEachAtItsPlace(texts, 1000);
  }
}

// A full table would have a search for what is not there go round and round.
TEST(HashIndex, EndsASearchWhateverRoomWasMade) {
  for (int room = 0; room < 100; ++room) {
    Texts texts(1U << 20);
    texts.index().reserve(static_cast<std::size_t>(room));
    for (int count = 0; count <= room; ++count) {
      texts.add(count);
      expectEachAtItsPlace(texts, count + 1);
    }
  }
}

TEST(HashIndex, FindsNothingOnceItWasCleared) {
  Texts texts(1U << 20);
  for (int number = 0; number < 20; ++number) texts.add(number);
  texts.index().clear();
  for (int number = 0; number < 20; ++number) EXPECT_EQ(texts.find(number), HashIndex::kNowhere);
}

TEST(HashIndex, SpreadsTheHashesOfNumbersThatFollowOneAnother) {
  std::vector<int> hits(1024);
  for (std::int64_t number = 0; number < 1024; ++number) ++hits[hashOf(number) % hits.size()];
  for (const int each : hits) EXPECT_LE(each, 8);
}

}  // namespace
}  // namespace corvane
