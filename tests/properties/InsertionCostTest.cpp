#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "tests/kit/TestSize.h"

// How many changes are delivered to a client for one bookmark that another client inserted, in folders of
// three sizes.
//
// At either end there is always a free number: one change. In the middle there is none, since a client that
// just read its file counts its children from 0 without gaps. The insertion then shares the number of a
// neighbour if its title sorts the right way (after the left one's or before the right one's); with random
// titles that fails only when the left one sorts after it and the right one before it, one time in six. Then
// a neighbour gives way by one, which works likewise if the titles allow, and so on: the chance of each
// further change falls like one over a factorial. So the average stays well below 2, eight changes come
// less than once in a hundred thousand insertions, and neither depends on the size of the folder.

namespace corvane::loomer::test {
namespace {

constexpr auto kInsertions = sized<std::size_t>(200, 40);

class Folder {
 public:
  explicit Folder(std::size_t children) : _random(children) {
    _input.revision = 2;
    _input.nextRecord = static_cast<RecordId>(children + 2);
    _input.client.emplace();
    for (std::size_t i = 0; i < children; ++i) {
      const auto id = static_cast<RecordId>(i + 1);
      const Content content{.name = title(), .url = String("http://example.com")};
      const String local(std::to_string(id));
      const auto position = static_cast<std::int32_t>(i);
      _input.truth.push_back({.id = id, .place = placeOf(i), .content = content, .revision = 1});
      _input.base.push_back({.localId = local, .record = id, .position = position, .content = content});
      _input.client->push_back({local, String(), Entity::bookmark, position, content});
    }
  }

  // Changes for one bookmark that stands before the `index`-th child.
  std::size_t changesForInsertionAt(std::size_t index) {
    const auto id = static_cast<RecordId>(_input.base.size() + 1);
    const Content content{.name = title(), .url = String("http://example.com")};
    _input.truth.push_back({.id = id, .place = placeOf(index) - 1, .content = content, .revision = 2});
    const MergeResult result = merge(_input);
    _input.truth.pop_back();
    EXPECT_TRUE(result.truthChanges.empty());
    return result.clientChanges.size();
  }

 private:
  static std::int64_t placeOf(std::size_t index) { return static_cast<std::int64_t>(index + 1) * 1000; }

  String title() {
    std::string text;
    for (int i = 0; i < 8; ++i) text += static_cast<char>('a' + _random() % 26);
    return String(text);
  }

  std::mt19937 _random;
  MergeInput _input;
};

class InsertionCost : public testing::TestWithParam<std::size_t> {};

TEST_P(InsertionCost, StaysSmallWhereverItIs) {
  const std::size_t children = GetParam();
  Folder folder(children);
  const std::size_t atEnd = folder.changesForInsertionAt(children);
  const std::size_t atFront = folder.changesForInsertionAt(0);
  // Big folders are merged whole for each insertion, so fewer of them are tried there.
  const std::size_t insertions = children > 10'000 ? kInsertions / 10 : kInsertions;
  std::size_t most = 0;
  std::size_t sum = 0;
  for (std::size_t i = 0; i < insertions; ++i) {
    const std::size_t changes = folder.changesForInsertionAt(1 + (i * 7919 + children / 2) % (children - 1));
    most = std::max(most, changes);
    sum += changes;
  }
  std::printf("%zu children: end %zu, front %zu, middle %.2f on average and %zu at most of %zu\n", children,
              atEnd, atFront, static_cast<double>(sum) / static_cast<double>(insertions), most, insertions);
  EXPECT_EQ(atEnd, 1U);
  EXPECT_EQ(atFront, 1U);
  EXPECT_LE(sum, 2 * insertions);
  EXPECT_LE(most, 8U);
}
INSTANTIATE_TEST_SUITE_P(Sizes, InsertionCost, testing::Values(10, 1'000, sized(100'000, 4'000)));

}  // namespace
}  // namespace corvane::loomer::test
