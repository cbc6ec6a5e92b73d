#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

#include "browsers/host/Intake.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {
namespace {

using browsers::BrowserNode;
using browsers::BrowserTree;
using browsers::HeldTree;
using browsers::Intake;
using browsers::NodeKind;
using browsers::RootKind;

class BrowserIntakeTest : public testing::Test {
 protected:
  // A bar with these in it.
  static BrowserTree barWith(const std::vector<BrowserNode>& nodes) {
    BrowserTree tree;
    tree.add({.id = "bar", .root = RootKind::bar});
    for (const BrowserNode& each : nodes) tree.add(each);
    return tree;
  }

  static BrowserNode bookmark(const std::string& id, const std::string& title, std::int64_t added) {
    return {.id = id,
            .parent = "bar",
            .kind = NodeKind::bookmark,
            .title = title,
            .url = "http://" + title + "/",
            .added = added};
  }

  Intake take(const BrowserTree& tree) { return browsers::takeIn(_held, tree, {}, {++_generation, 0.0}); }

  std::set<std::string> localIds() const {
    std::set<std::string> ids;
    for (const auto& [localId, node] : _held.nodes()) {
      if (!node.root) ids.insert(localId);
    }
    return ids;
  }

 private:
  FakePlatform _platform;
  HeldTree _held;
  std::int64_t _generation = 0;
};

TEST_F(BrowserIntakeTest, IdThatWasGivenAwayAgainIsAnotherNode) {
  take(barWith({bookmark("7", "ant", 1)}));
  const auto before = localIds();
  EXPECT_EQ(take(barWith({bookmark("7", "bee", 2)})).edits, 2U);
  EXPECT_NE(localIds(), before);
}

TEST_F(BrowserIntakeTest, IdAloneIsNotEnoughWhereNothingElseIsTheSame) {
  take(barWith({{.id = "F", .parent = "bar", .title = "F", .added = 1},
                {.id = "7",
                 .parent = "F",
                 .kind = NodeKind::bookmark,
                 .title = "ant",
                 .url = "http://ant/",
                 .added = 2}}));
  const auto before = localIds();
  EXPECT_EQ(
      take(barWith({{.id = "F", .parent = "bar", .title = "F", .added = 1}, bookmark("7", "bee", 2)})).edits,
      2U);
  EXPECT_NE(localIds(), before);
}

TEST_F(BrowserIntakeTest, ChangedNodeIsKnownByItsIdAndDate) {
  take(barWith({bookmark("7", "ant", 1)}));
  const auto before = localIds();
  EXPECT_EQ(take(barWith({bookmark("7", "bee", 1)})).edits, 1U);
  EXPECT_EQ(localIds(), before);
}

TEST_F(BrowserIntakeTest, NodeWithAnotherIdIsKnownInItsFolderAndThenAnywhere) {
  take(barWith({{.id = "F", .parent = "bar", .title = "F", .added = 1}, bookmark("7", "ant", 2)}));
  const auto before = localIds();
  EXPECT_EQ(
      take(barWith({{.id = "G", .parent = "bar", .title = "F", .added = 3}, bookmark("8", "ant", 4)})).edits,
      0U);
  EXPECT_EQ(localIds(), before);
  BrowserNode moved = bookmark("9", "ant", 5);
  moved.parent = "G";
  EXPECT_EQ(take(barWith({{.id = "G", .parent = "bar", .title = "F", .added = 3}, moved})).edits, 1U);
  EXPECT_EQ(localIds(), before);
}

}  // namespace
}  // namespace corvane
