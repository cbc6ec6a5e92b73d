#include <gtest/gtest.h>

#include <utility>

#include "browsers/host/BrowserTree.h"
#include "browsers/host/MessageProblem.h"

namespace corvane {
namespace {

using browsers::NodeKind;
using browsers::RootKind;

TEST(BrowserTreeTest, TreeBeyondTheLimitIsRefused) {
  browsers::BrowserTree tree(2);
  tree.add({.id = "1", .root = RootKind::bar});
  tree.add({.id = "2", .parent = "1"});
  EXPECT_THROW(tree.add({.id = "3", .parent = "1"}), browsers::MessageProblem);
}

TEST(BrowserTreeTest, TreeMustBeAForest) {
  const browsers::BrowserNode root{.id = "1", .root = RootKind::bar};
  const auto takes = [&](browsers::BrowserNode node) {
    browsers::BrowserTree tree;
    tree.add(root);
    tree.add({.id = "2", .parent = "1", .kind = NodeKind::bookmark});
    tree.add(std::move(node));
  };
  EXPECT_THROW(takes({.id = "3", .parent = "3"}), browsers::MessageProblem);
  EXPECT_THROW(takes({.id = "3", .parent = "2"}), browsers::MessageProblem);
  EXPECT_THROW(takes({.id = "2", .parent = "1"}), browsers::MessageProblem);
  EXPECT_THROW(takes({.id = "3"}), browsers::MessageProblem);
  EXPECT_THROW(takes({.id = "", .parent = "1"}), browsers::MessageProblem);
  EXPECT_NO_THROW(takes({.id = "3", .parent = "1"}));
}

}  // namespace
}  // namespace corvane
