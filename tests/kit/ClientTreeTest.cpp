#include <gtest/gtest.h>

#include <stdexcept>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "tests/kit/ClientTree.h"

namespace corvane::kit {
namespace {

/// `F(a b) c`.
class ClientTreeTest : public testing::Test {
 protected:
  ClientTree tree{"x"};
  const std::string folder = tree.add(newNode(true, ClientTree::kRoot, "F"));
  const std::string a = tree.add(newNode(false, folder, "a", "http://a"));
  const std::string b = tree.add(newNode(false, folder, "b", "http://b"));
  const std::string c = tree.add(newNode(false, ClientTree::kRoot, "c", "http://c"));

  ClientTree::Node at(int position, const char* name, bool isFolder = false) {
    ClientTree::Node node = newNode(isFolder, folder, name, std::string("http://") + name);
    node.position = position;
    return node;
  }
};

TEST_F(ClientTreeTest, IsEditedAsAPersonSays) {
  tree.move(c, folder, 1);
  tree.rename(a, "d");
  tree.readdress(b, "y");
  tree.toggle(folder);
  tree.add(newNode(false, ClientTree::kRoot, "e", "http://e"), 0);
  EXPECT_EQ(tree.text(), "e F*(d@http://a c b@y)");
  tree.remove(folder);
  EXPECT_EQ(tree.text(), "e");
  EXPECT_EQ(tree.nodes.size(), 1u);
}

TEST_F(ClientTreeTest, NumbersAFolderAtEachEditAndKeepsSpecialPositions) {
  tree.nodes.at(a).position = LoomerPositionSpecial;
  tree.move(c, folder, 0);
  EXPECT_EQ(tree.nodes.at(c).position, 0);
  EXPECT_EQ(tree.nodes.at(a).position, LoomerPositionSpecial);
  EXPECT_EQ(tree.nodes.at(b).position, 2);
  tree.remove(c);
  EXPECT_EQ(tree.nodes.at(b).position, 1);
}

TEST_F(ClientTreeTest, LeavesAFolderWhereItIsThatIsMovedIntoItself) {
  const std::string inner = tree.add(newNode(true, folder, "G"));
  tree.move(folder, inner);
  EXPECT_EQ(tree.text(), "F(a b G()) c");
}

TEST_F(ClientTreeTest, PlacesByNumberThenByTitleAndFoldersFirst) {
  tree.place("new", at(1, "c"));
  EXPECT_EQ(tree.text(), "F(a b c) c") << "b comes first by title";
  tree.place("new", at(1, "B", true));
  EXPECT_EQ(tree.text(), "F(a B() b) c");
  tree.place("new", at(0, "z"));
  EXPECT_EQ(tree.text(), "F(a z b) c");
}

TEST_F(ClientTreeTest, PlacesNothingInAFolderThatIsNotThere) {
  ClientTree::Node node = at(0, "n");
  node.parent = "nowhere";
  EXPECT_THROW(tree.place("new", node), std::logic_error);
}

TEST_F(ClientTreeTest, DropsANodeWithoutWhatIsInIt) {
  tree.drop(folder);
  EXPECT_EQ(tree.text(), "c");
  EXPECT_TRUE(tree.nodes.contains(a));
  tree.drop(folder);
  tree.drop(a);
  EXPECT_FALSE(tree.nodes.contains(a));
}

TEST_F(ClientTreeTest, ShowsAndDropsNothingThatIsHidden) {
  tree.nodes.at(folder).hidden = true;
  EXPECT_EQ(tree.text(), "c");
  EXPECT_EQ(tree.visibleFolders(), std::vector<std::string>{ClientTree::kRoot});
  EXPECT_EQ(tree.visibleNodes(), std::vector<std::string>{c});
  tree.dropAll(false);
  EXPECT_FALSE(tree.nodes.contains(c));
  EXPECT_TRUE(tree.nodes.contains(a)) << "it lies in a hidden folder";
}

TEST_F(ClientTreeTest, TellsWhenANodeIsListedTwice) {
  EXPECT_EQ(tree.subtree(folder), (std::vector<std::string>{folder, a, b}));
  tree.children[ClientTree::kRoot].push_back(b);
  EXPECT_THROW(tree.subtree(ClientTree::kRoot), std::logic_error);
}

}  // namespace
}  // namespace corvane::kit
