#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/kit/TreeText.h"

namespace corvane::kit {
namespace {

const std::vector<TreeNode> kTree = {
    {.label = "F",
     .folder = true,
     .title = "F",
     .children = {{.label = "a", .title = "news", .url = "http://a"},
                  {.label = "b", .title = "b", .url = "x"}}},
    {.label = "G", .folder = true, .title = "G", .tabGroup = true, .special = true},
    {.label = "c", .title = String(), .url = String()},
    {.label = "two words", .title = "", .url = "http://q/?a=\"\\\""}};
const std::string kText = R"(F(a=news b@x) G*!() c=@ "two words"=""@"http://q/?a=\"\\\"")";

TEST(TreeText, IsReadAsTheTreeThatItSays) { EXPECT_EQ(parseTree(kText), kTree); }

TEST(TreeText, IsPrintedAsItIsRead) {
  EXPECT_EQ(printTree(kTree), kText);
  EXPECT_EQ(printTree({}), "");
}

TEST(TreeText, TellsApartWhatDiffersInOneThing) {
  const TreeNode plain{.label = "a", .title = "a", .url = "http://a"};
  TreeNode others[] = {plain, plain, plain, plain, plain, plain, plain};
  others[0].title = String();
  others[1].title = "";
  others[2].url = String();
  others[3].url = "";
  others[4].tabGroup = true;
  others[5].special = true;
  others[6].label = "b";
  for (const TreeNode& other : others) EXPECT_NE(printTree({other}), printTree({plain}));
  EXPECT_NE(printTree({others[0]}), printTree({others[1]}));
  EXPECT_NE(printTree({others[2]}), printTree({others[3]}));
}

TEST(TreeText, IsRefusedWhereItIsNoTree) {
  for (const char* text : {"F(", ")", "F(a))", "=news", "a\"", "\"a", "F@x(a)", "a*b", "a!*"}) {
    EXPECT_THROW(parseTree(text), std::invalid_argument) << text;
  }
}

}  // namespace
}  // namespace corvane::kit
