#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tests/kit/TestSize.h"
#include "tests/loomer/merge/CheckTimes.h"
#include "tests/loomer/merge/OrderProperties.h"

// The rules for the order of siblings: rows, all small cases, and random ones.

namespace corvane::loomer::test {
namespace {

struct OrderRow {
  const char* phrase;
  SiblingOrders orders;
  const char* merged;
};

const OrderRow kOrderRows[] = {
    {"what both sides turned round stays so", {"abc", "cba", "bac"}, "cba"},
    {"what nobody turned round stays so", {"abc", "acb", "cab"}, "cab"},
    {"one moved to the front here, another to the end there", {"abcd", "bcda", "dabc"}, "dbca"},
    {"both moved one to the front, each another: the later in the base goes first",
     {"abcfd", "fabcd", "dabcf"},
     "dfabc"},
    {"moved here between two that a move there parted", {"fpsz", "pfsz", "fzps"}, "pfzs"},
    {"both moved one: the client's place", {"abcde", "aebcd", "abecd"}, "abecd"},
    {"in a refresh the truth's place", {"abcde", "abecd", "aebcd", true}, "abecd"},
    {"a move behind one that both moved is not held up", {"abcxe", "exabc", "abcxe"}, "exabc"},
    {"moves in a ring: the first heads decide", {"abc", "acb", "bac"}, "bac"},
    {"what was appended stays behind all", {"abc", "cab", "abcij"}, "cabij"},
    {"what was put first stays before all", {"abc", "bca", "ijabc"}, "ijbca"},
    {"an insertion stays behind what it was put behind, before its next neighbour",
     {"abcd", "cabd", "abcijd"},
     "cabijd"},
};

TEST(SiblingOrder, MergesAsItsRowSays) {
  for (const OrderRow& row : kOrderRows) {
    SCOPED_TRACE(row.phrase);
    EXPECT_EQ(mergedOrder(row.orders), row.merged);
    EXPECT_NO_THROW(requireOrderRules(row.orders));
  }
}

TEST(SiblingOrder, EveryReorderOfUpToFiveSiblingsKeepsTheRules) {
  for (const std::string base : {"a", "ab", "abc", "abcd", "abcde"}) {
    if (base.size() > sized(5u, 4u)) break;
    std::string truth = base;
    do {
      std::string client = base;
      do {
        ASSERT_NO_THROW(requireOrderRules({base, truth, client}));
        ASSERT_NO_THROW(requireOrderRules({base, truth, client, true}));
      } while (std::next_permutation(client.begin(), client.end()));
    } while (std::next_permutation(truth.begin(), truth.end()));
  }
}

// Every order of `list` with both letters of `inserted` in every two places.
std::vector<std::string> withInsertions(std::string list, const std::string& inserted) {
  std::vector<std::string> result;
  do {
    for (std::size_t first = 0; first <= list.size(); ++first) {
      for (std::size_t second = first; second <= list.size(); ++second) {
        std::string with = list;
        with.insert(second, 1, inserted[1]);
        with.insert(first, 1, inserted[0]);
        result.push_back(with);
      }
    }
  } while (std::next_permutation(list.begin(), list.end()));
  return result;
}

TEST(SiblingOrder, EveryTwoInsertionsAndReordersOnBothSidesKeepTheRules) {
  const std::string base = sized<const char*>("abc", "ab");
  const std::vector<std::string> truths = withInsertions(base, "st");
  const std::vector<std::string> clients = withInsertions(base, "xy");
  for (const std::string& truth : truths) {
    for (const std::string& client : clients) ASSERT_NO_THROW(requireOrderRules({base, truth, client}));
  }
}

TEST(SiblingOrder, WhatTheBaseDoesNotKnowKeepsTheRules) {
  for (const std::string base : {"", "a", "ab"}) {
    std::string truth = "abcd";
    do {
      // A record that the base lacks has no id at the client: it is matched by its title and address.
      std::string client = "abcd";
      do {
        ASSERT_NO_THROW(requireOrderRules({base, truth, client}));
        ASSERT_NO_THROW(requireOrderRules({base, truth, client, true}));
      } while (std::next_permutation(client.begin(), client.end()));
    } while (std::next_permutation(truth.begin(), truth.end()));
  }
}

TEST(SiblingOrder, RandomEditsOfUpToTwelveSiblingsKeepTheRules) {
  checkTimes(sized(20'000, 1'000), 100, ordersKeepTheirRules);
}

}  // namespace
}  // namespace corvane::loomer::test
