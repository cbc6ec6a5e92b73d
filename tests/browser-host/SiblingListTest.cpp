#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "browsers/host/SiblingList.h"

namespace corvane {
namespace {

using browsers::SiblingList;

TEST(SiblingListTest, ChangesGoWhereTheyGoInAPlainList) {
  std::mt19937 random(20261123);
  const auto below = [&](std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random);
  };
  SiblingList list;
  std::vector<std::string> plain;
  for (int step = 0; step < 3000; ++step) {
    const std::string id = std::to_string(below(120));
    const auto listed = std::find(plain.begin(), plain.end(), id);
    if (listed != plain.end()) {
      ASSERT_EQ(list.indexOf(id), static_cast<std::size_t>(listed - plain.begin()));
      plain.erase(listed);
      list.remove(id);
    } else if (below(20) == 0) {
      plain.push_back(id);
      list.append(id);
    } else {
      const std::size_t index = below(plain.size() + 3);
      plain.insert(plain.begin() + static_cast<std::ptrdiff_t>(std::min(index, plain.size())), id);
      list.insert(index, id);
    }
    if (below(10) == 0) {
      ASSERT_EQ(list.ids(), plain);
    }
  }
  EXPECT_EQ(list.ids(), plain);
}

TEST(SiblingListTest, RemovingWhatIsNotListedDoesNothing) {
  SiblingList list;
  list.append("1");
  list.remove("2");
  EXPECT_EQ(list.ids(), std::vector<std::string>{"1"});
}

}  // namespace
}  // namespace corvane
