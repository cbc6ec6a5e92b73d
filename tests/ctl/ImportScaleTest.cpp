// Reading deep and long bookmarks of other browsers.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/kit/TestSize.h"
#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/browsers/PlacesDatabase.h"

namespace corvane::loomerctl {
namespace {

constexpr int kDepth = sized(200'000, 20'000);

PlacesRow folderIn(std::int64_t parent, std::int64_t id, const char* guid = "") {
  PlacesRow row;
  row.id = row.position = id;
  row.parent = parent;
  row.type = 2;
  row.title = "F";
  row.guid = guid;
  return row;
}

TEST(ImportScaleTest, DeepAndCyclicPlacesNeedNoStackAndNoSquareOfTheirSize) {
  const std::vector<PlacesRow> top{folderIn(0, 1, "root________"), folderIn(1, 2, "menu________")};
  std::vector<PlacesRow> deep = top;
  std::vector<PlacesRow> cycle = top;
  for (int i = 0; i < kDepth; ++i) {
    deep.push_back(folderIn(i == 0 ? 2 : 9 + i, 10 + i));
    cycle.push_back(folderIn(10 + (i + 1) % kDepth, 10 + i));
  }
  EXPECT_EQ(treeOfPlaces({deep, {}, {}}).nodes.size(), std::size_t{kDepth} + 1);
  const BrowserBookmarks read = treeOfPlaces({cycle, {}, {}});
  EXPECT_EQ(read.nodes.size(), std::size_t{kDepth} + 1);
  EXPECT_EQ(read.strays, 1u);
}

TEST(ImportScaleTest, DeepAndLongHtmlNeedsNoStackAndNoSquareOfItsLength) {
  std::string deep;
  for (int i = 0; i < kDepth; ++i) deep += "<DT><H3>F</H3><DL>";
  EXPECT_EQ(parseBookmarksHtml(deep).nodes.size(), std::size_t{kDepth});
  std::string quotes;
  for (int i = 0; i < kDepth; ++i) quotes += "<DT><A HREF=\"x>A</A><DT><A HREF='x>";
  EXPECT_FALSE(parseBookmarksHtml(quotes).nodes.empty());
  std::string open;
  for (int i = 0; i < kDepth; ++i) open += "<script <!-- < & &# <style";
  parseBookmarksHtml(open);
}

}  // namespace
}  // namespace corvane::loomerctl
