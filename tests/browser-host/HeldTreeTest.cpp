#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "browsers/host/HeldTree.h"

namespace corvane {
namespace {

using browsers::HeldNode;
using browsers::HeldTree;
using browsers::NodeKind;

// A folder's children as whoever walks the list for each of them leaves it.
class WalkedFolder {
 public:
  void add(const HeldNode& node) { _nodes.push_back(node); }

  void place(const HeldNode& node) {
    drop(node.localId);
    const auto at = std::find_if(_nodes.begin(), _nodes.end(), [&](const HeldNode& sibling) {
      if (node.position != sibling.position) return node.position < sibling.position;
      const int order =
          node.title.value ? compareCaseInsensitive(node.title.value.view(), sibling.title.value.view()) : 0;
      return order < 0 || (order == 0 && node.kind == NodeKind::folder);
    });
    _nodes.insert(at, node);
  }

  void drop(const std::string& localId) {
    std::erase_if(_nodes, [&](const HeldNode& each) { return each.localId == localId; });
  }

  std::vector<std::string> ids() const {
    std::vector<std::string> ids;
    for (const HeldNode& each : _nodes) ids.push_back(each.localId);
    return ids;
  }

 private:
  std::vector<HeldNode> _nodes;
};

class HeldTreeTest : public testing::Test {
 protected:
  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>(0, limit - 1)(_random);
  }

  HeldNode titled(const std::string& localId) {
    static const char* const kTitles[] = {"", "ant", "Ant", "bee", "cat"};
    HeldNode node;
    node.localId = localId;
    node.parent = "F";
    node.kind = below(3) == 0 ? NodeKind::folder : NodeKind::bookmark;
    node.title.set(String(kTitles[below(std::size(kTitles))]));
    node.position = static_cast<std::int32_t>(below(6));
    return node;
  }

 private:
  std::mt19937 _random{20261123};
};

TEST_F(HeldTreeTest, PlacedNodesStandWhereAWalkOfTheListPutsThem) {
  for (int history = 0; history < 300; ++history) {
    HeldTree tree;
    WalkedFolder walked;
    // A list in any order, as a browser has it: special folders anywhere, and nodes without a title.
    for (int i = 0; i < 6; ++i) {
      HeldNode node = titled("listed " + std::to_string(i));
      if (below(3) == 0) node.position = LoomerPositionSpecial;
      if (below(4) == 0) node.title.set({});
      walked.add(node);
      tree.add(std::move(node));
    }
    for (int i = 0; i < 12; ++i) {
      HeldNode node = titled("placed " + std::to_string(i));
      if (below(4) == 0) node.title.set({});
      walked.place(node);
      tree.place(std::move(node));
      if (below(5) == 0) {
        ASSERT_EQ(tree.childrenOf("F"), walked.ids());
      }
    }
    ASSERT_EQ(tree.childrenOf("F"), walked.ids());
  }
}

TEST_F(HeldTreeTest, NodesThatLeaveAndComeBackStandWhereTheyWerePutLast) {
  for (int history = 0; history < 300; ++history) {
    HeldTree tree;
    WalkedFolder walked;
    for (int i = 0; i < 30; ++i) {
      HeldNode node = titled(std::to_string(below(8)));
      const std::size_t step = below(4);
      if (step == 0) {
        walked.drop(node.localId);
        tree.drop(node.localId);
      } else if (step == 1) {
        walked.drop(node.localId);
        node.parent = "elsewhere";
        tree.place(std::move(node));
      } else {
        walked.place(node);
        tree.place(std::move(node));
      }
      if (below(9) == 0) {
        ASSERT_EQ(tree.childrenOf("F"), walked.ids());
      }
    }
    ASSERT_EQ(tree.childrenOf("F"), walked.ids());
    std::vector<std::string> all = walked.ids();
    const std::vector<std::string>& elsewhere = tree.childrenOf("elsewhere");
    all.insert(all.end(), elsewhere.begin(), elsewhere.end());
    EXPECT_EQ(all.size(), tree.nodes().size());
  }
}

TEST_F(HeldTreeTest, CopyHasWhatWasPlacedBefore) {
  HeldTree tree;
  tree.place(titled("1"));
  HeldTree copy = tree;
  copy.drop("1");
  EXPECT_EQ(tree.childrenOf("F"), std::vector<std::string>{"1"});
  EXPECT_TRUE(copy.childrenOf("F").empty());
}

}  // namespace
}  // namespace corvane
