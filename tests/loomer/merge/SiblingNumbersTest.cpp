#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/loomer/merge/SiblingNumbers.h"
#include "tests/kit/TestSize.h"
#include "tests/loomer/merge/CheckTimes.h"

namespace corvane::loomer {
namespace {

constexpr std::int32_t kAnywhere = std::numeric_limits<std::int32_t>::min();

PlacedChild listed(std::uint32_t rank, std::int32_t number, std::string_view title) {
  return {.listed = true, .rank = rank, .number = number, .hasTitle = true, .title = title};
}
PlacedChild added(std::string_view title) { return {.delivered = true, .hasTitle = true, .title = title}; }

// "number" for each child, with "!" where the client is told it.
std::string numbered(std::vector<PlacedChild> children, std::int32_t least = kAnywhere) {
  numberChildren(children, least);
  EXPECT_TRUE(listsInOrder(children, least));
  std::string text;
  for (const PlacedChild& child : children) {
    text += (text.empty() ? "" : " ") + std::to_string(child.number) + (child.delivered ? "!" : "");
  }
  return text;
}

struct SiblingsRow {
  const char* phrase;
  std::vector<PlacedChild> children;
  const char* expected;
  std::int32_t least = kAnywhere;
};
void PrintTo(const SiblingsRow& row, std::ostream* out) { *out << row.phrase; }

class Placement : public ::testing::TestWithParam<SiblingsRow> {};
TEST_P(Placement, ChangesAsFewAsItCan) {
  EXPECT_EQ(numbered(GetParam().children, GetParam().least), GetParam().expected);
}

const SiblingsRow kRows[] = {
    {"nothing to do keeps even equal numbers", {listed(0, 7, "b"), listed(1, 7, "b")}, "7 7"},
    {"an empty folder counts from 0", {added("b"), added("a")}, "0! 1!"},
    {"at the end one more than the last", {listed(0, 0, "b"), listed(1, 1, "b"), added("a")}, "0 1 2!"},
    {"at the front one less than the first", {added("z"), listed(0, 0, "b")}, "-1! 0"},
    {"numbers with a meaning of their own are left out",
     {added("c"), added("b"), added("a"), listed(0, 0, "b")},
     "-4! -3! -1! 0"},
    {"in the root the front has room for one", {added("z"), listed(0, 0, "b")}, "-1! 0", -1},
    {"and for more where titles allow one number",
     {added("x"), added("y"), listed(0, 0, "z")},
     "0! 0! 0",
     -1},
    {"else the next one gives way",
     {added("y"), added("x"), listed(0, 0, "b"), listed(1, 2, "b")},
     "-1! 0! 1! 2",
     -1},
    {"a gap is used", {listed(0, 0, "b"), added("a"), listed(1, 2, "b")}, "0 1! 2"},
    {"no gap: the number of the left neighbour where titles allow",
     {listed(0, 0, "b"), added("c"), listed(1, 1, "b")},
     "0 0! 1"},
    {"no gap: the number of the right neighbour where titles allow",
     {listed(0, 0, "b"), added("a"), listed(1, 1, "b")},
     "0 1! 1"},
    {"titles compare without regard to case", {listed(0, 0, "b"), added("C"), listed(1, 1, "b")}, "0 0! 1"},
    {"no gap and no title: the fewest neighbours give way",
     {listed(0, 0, "b"), listed(1, 1, "b"), listed(2, 2, "b"), listed(3, 3, "b"), added("b"),
      listed(4, 4, "b"), listed(5, 6, "b")},
     "0 1 2 3 4! 5! 6"},
    {"an absent title shares no number",
     {listed(0, 0, "b"), PlacedChild{.delivered = true}, listed(1, 1, "c")},
     "0 1! 2!"},
    {"one child moved to the end is one change",
     {listed(1, 1, "b"), listed(2, 2, "b"), listed(0, 0, "b")},
     "1 2 3!"},
    {"what is delivered anyway is renumbered first",
     {PlacedChild{.listed = true, .rank = 1, .number = 1, .delivered = true, .hasTitle = true, .title = "b"},
      listed(0, 0, "b")},
     "-1! 0"},
    {"the last number of all leaves no room behind it",
     {listed(0, std::numeric_limits<std::int32_t>::max(), "b"), added("a")},
     "0! 1!"},
};
INSTANTIATE_TEST_SUITE_P(Numbers, Placement, ::testing::ValuesIn(kRows));

// The client's walk over its list, child by child.
class NaiveFolder {
 public:
  struct Entry {
    std::size_t child;
    std::int32_t number;
    std::string_view title;
    bool folder;
  };

  void list(const Entry& entry) { _entries.push_back(entry); }
  void place(const Entry& placed) {
    std::erase_if(_entries, [&](const Entry& entry) { return entry.child == placed.child; });
    const auto before = std::find_if(_entries.begin(), _entries.end(), [&](const Entry& entry) {
      if (placed.number != entry.number) return placed.number < entry.number;
      const int byTitle = compareCaseInsensitive(placed.title, entry.title);
      return byTitle < 0 || (byTitle == 0 && placed.folder);
    });
    _entries.insert(before, placed);
  }
  const std::vector<Entry>& entries() const { return _entries; }

 private:
  std::vector<Entry> _entries;
};

// However the children arrive, the client's walk lists them in the wanted order.
void walkYieldsOrder() {
  static constexpr std::string_view kTitles[] = {"a", "B", "b", "c"};
  constexpr std::size_t kHidden = 1000;
  const auto titles = *rc::gen::container<std::vector<int>>(rc::gen::inRange(0, 4));
  const auto kinds = *rc::gen::container<std::vector<int>>(titles.size(), rc::gen::inRange(0, 10));
  const std::int32_t least = *rc::gen::element(-1, kAnywhere);
  std::vector<PlacedChild> children;
  NaiveFolder folder;
  // The client's present list: every child that is not new, in a random order, hidden entries between.
  std::vector<std::size_t> present;
  for (std::size_t i = 0; i < titles.size(); ++i) {
    if (kinds[i] > 2) present.push_back(i);
  }
  for (std::size_t i = 0; i + 1 < present.size(); ++i) {
    if (*rc::gen::inRange(0, 3) == 0) std::swap(present[i], present[*rc::gen::inRange(i, present.size())]);
  }
  for (std::size_t i = 0; i < titles.size(); ++i) {
    children.push_back({.delivered = kinds[i] <= 3, .hasTitle = true, .title = kTitles[titles[i]]});
  }
  std::int32_t number = 0;
  for (std::size_t rank = 0; rank < present.size(); ++rank) {
    if (kinds[present[rank]] == 9) folder.list({kHidden + rank, number++, "b", false});
    PlacedChild& child = children[present[rank]];
    child.listed = true;
    child.rank = static_cast<std::uint32_t>(rank);
    child.number = number++;
    folder.list({present[rank], child.number, child.title, false});
  }
  numberChildren(children, least);
  std::vector<std::size_t> arrivals;
  for (std::size_t i = 0; i < children.size(); ++i) {
    if (children[i].delivered) arrivals.push_back(i);
  }
  for (std::size_t i = 0; i + 1 < arrivals.size(); ++i) {
    std::swap(arrivals[i], arrivals[*rc::gen::inRange(i, arrivals.size())]);
  }
  for (const std::size_t child : arrivals) {
    RC_ASSERT(children[child].number >= least);
    RC_ASSERT(children[child].number != -2 && children[child].number != -1000);
    folder.place({child, children[child].number, children[child].title, kinds[child] % 2 == 0});
  }
  std::vector<std::size_t> order;
  for (const NaiveFolder::Entry& entry : folder.entries()) {
    if (entry.child < kHidden) order.push_back(entry.child);
  }
  for (std::size_t i = 0; i < order.size(); ++i) RC_ASSERT(order[i] == i);
}

TEST(PlacementProperty, TheClientsWalkYieldsTheOrder) {
  test::checkTimes(sized(10'000, 1'000), 40, walkYieldsOrder);
}

}  // namespace
}  // namespace corvane::loomer
