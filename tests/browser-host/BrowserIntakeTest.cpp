#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>

#include "browsers/host/Intake.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/kit/TestSize.h"

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

  // Has a bookmark wait to be made in the bar.
  void await(const std::string& title) {
    browsers::HeldNode node;
    node.localId = "awaited";
    node.parent = _held.root(RootKind::bar)->localId;
    node.title.set(String(title));
    node.url.set(String("http://" + title + "/"));
    _held.add(std::move(node));
  }

  // Has all but the bar go from the browser, as another client has deleted it.
  void forget() {
    for (const std::string& localId : localIds()) {
      const browsers::HeldNode& node = *_held.find(localId);
      _held.removed.push_back({.kind = node.kind,
                               .browserId = node.browserId,
                               .title = node.title.shown,
                               .url = node.url.shown,
                               .added = node.added,
                               .changed = {_generation, 0.0},
                               .isWaiting = true});
      _held.drop(localId);
    }
  }

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

TEST_F(BrowserIntakeTest, NodeInItsFolderIsKnownBeforeOneThatIsLikeItElsewhere) {
  BrowserNode ant = bookmark("2", "ant", 2);
  ant.parent = "F";
  take(barWith({{.id = "F", .parent = "bar", .title = "F", .added = 1}, ant}));
  BrowserNode renewed = bookmark("5", "ant", 5);
  renewed.parent = "G";
  EXPECT_EQ(
      take(
          barWith({bookmark("3", "ant", 3), {.id = "G", .parent = "bar", .title = "F", .added = 4}, renewed}))
          .edits,
      1U);
}

TEST_F(BrowserIntakeTest, BookmarkThatIsEditedAndHasAnotherIdIsKnownInItsFolder) {
  take(barWith({bookmark("1", "ant", 1), bookmark("2", "bee", 2), bookmark("3", "cat", 3)}));
  const auto before = localIds();
  BrowserNode renamed = bookmark("4", "ant", 4);
  renamed.title = "ape";
  BrowserNode readdressed = bookmark("5", "bee", 5);
  readdressed.url = "http://another/";
  EXPECT_EQ(take(barWith({renamed, readdressed, bookmark("6", "cat", 6)})).edits, 2U);
  EXPECT_EQ(localIds(), before);
}

TEST_F(BrowserIntakeTest, BookmarkThatArrivedWithoutAnAnswerAndWasRenamedIsKnownByItsAddress) {
  take(barWith({bookmark("1", "ant", 1)}));
  await("bee");
  const auto before = localIds();
  BrowserNode renamed = bookmark("2", "bee", 2);
  renamed.title = "ape";
  EXPECT_EQ(take(barWith({bookmark("1", "ant", 1), renamed})).edits, 1U);
  EXPECT_EQ(localIds(), before);
}

TEST_F(BrowserIntakeTest, FolderThatIsToGoLivesWithWhatTheUserHasPutIntoIt) {
  const BrowserNode folder{.id = "F", .parent = "bar", .title = "F", .added = 1};
  take(barWith({folder}));
  forget();
  EXPECT_EQ(take(barWith({folder})).edits, 0U);
  EXPECT_TRUE(localIds().empty());
  BrowserNode ant = bookmark("2", "ant", 2);
  ant.parent = "F";
  EXPECT_EQ(take(barWith({folder, ant})).edits, 2U);
}

TEST_F(BrowserIntakeTest, FolderThatAnAccountPutsInPlaceOfAnotherIsGivenWhatTheOtherOneHad) {
  take(barWith({{.id = "F", .parent = "bar", .title = "F", .added = 1}, bookmark("7", "ant", 2)}));
  const auto before = localIds();
  BrowserTree tree =
      barWith({{.id = "F", .parent = "bar", .title = "F", .added = 1}, bookmark("7", "ant", 2)});
  tree.add({.id = "account", .root = RootKind::bar, .syncing = true});
  tree.add({.id = "8",
            .parent = "account",
            .kind = NodeKind::bookmark,
            .title = "ant",
            .url = "http://ant/",
            .added = 3});
  const Intake intake = take(tree);
  EXPECT_EQ(intake.edits, 0U);
  EXPECT_TRUE(intake.lost);
  EXPECT_EQ(localIds(), before);
}

TEST_F(BrowserIntakeTest, TreeOfAnyDepthIsTakenIn) {
  const int depth = sized(20'000, 3000);
  browsers::BrowserTree tree;
  tree.add({.id = "0", .root = RootKind::bar});
  for (int i = 1; i <= depth; ++i) tree.add({.id = std::to_string(i), .parent = std::to_string(i - 1)});
  browsers::HeldTree held;
  browsers::takeIn(held, tree, {}, {1, 0.0});
  EXPECT_EQ(held.nodes().size(), static_cast<std::size_t>(depth + 1));
  EXPECT_EQ(browsers::takeIn(held, tree, {}, {2, 0.0}).edits, 0U);
}

TEST_F(BrowserIntakeTest, DeletionsThatAreUnderWayAreNotForgottenHoweverMany) {
  browsers::BrowserTree tree;
  tree.add({.id = "root", .root = RootKind::bar});
  browsers::HeldTree held;
  for (int i = 0; i < 6000; ++i) {
    const std::string id = std::to_string(i);
    tree.add(
        {.id = id, .parent = "root", .kind = NodeKind::bookmark, .url = "http://" + id + "/", .added = i});
    held.removed.push_back({.kind = NodeKind::bookmark,
                            .browserId = id,
                            .title = "",
                            .url = "http://" + id + "/",
                            .added = {i, {}},
                            .changed = {1, 0.0},
                            .isWaiting = true});
  }
  EXPECT_EQ(browsers::takeIn(held, tree, {}, {2, 0.0}).edits, 0U);
  EXPECT_EQ(held.removed.size(), 6000U);
  EXPECT_TRUE(held.nodes().empty());
  EXPECT_EQ(browsers::takeIn(held, tree, {}, {3, 0.0}).edits, 0U);
}

}  // namespace
}  // namespace corvane
