#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/chain/Survey.h"

namespace corvane::pelto::chain {
namespace {

/// A commit is a letter, of which its hash is made.
Link commitLink(std::int64_t number, char letter, char previous, int attempt = 0) {
  Link link;
  link.number = number;
  link.hash = std::string(kHashBytes, letter);
  link.previous = previous ? std::string(kHashBytes, previous) : beginning();
  link.attempt = attempt;
  link.tail = number;
  return link;
}

Link checkpointLink(std::int64_t number, char letter, char previous, bool isWhole = true) {
  Link link = commitLink(number, letter, previous);
  link.isCheckpoint = true;
  link.isWhole = isWhole;
  link.tail = 0;
  return link;
}

Link lastLink(std::int64_t number, char letter, char previous) {
  Link link = commitLink(number, letter, previous);
  link.isLast = true;
  return link;
}

/// What is at the place: an upper-case letter is damaged there.
std::string chainAmong(const std::vector<Link>& commits) {
  std::map<std::string, Found> there;
  std::vector<std::string> listed{"no-commit"};
  for (const Link& each : commits) {
    const bool isDamaged = each.hash[0] >= 'A' && each.hash[0] <= 'Z';
    there[nameOf(each)] =
        isDamaged ? Found{Found::State::damaged, {}, each.hash} : Found{Found::State::good, each, each.hash};
    listed.push_back(nameOf(each));
  }
  Readings readings;
  for (std::size_t rounds = 0; rounds <= commits.size(); ++rounds) {
    const Survey found = survey(listed, readings);
    if (found.unread.empty()) {
      std::string letters;
      for (const Link& each : found.path) letters += each.hash[0];
      return letters;
    }
    for (const std::string& name : found.unread) readings[name] = there.at(name);
  }
  throw std::logic_error("it reads without an end");
}

TEST(Survey, FindsTheCompleteChainWithTheHighestNumber) {
  const struct {
    const char* phrase;
    std::vector<Link> commits;
    const char* chain;
  } rows[] = {
      {"nothing", {}, ""},
      {"one line", {commitLink(1, 'a', 0), commitLink(2, 'b', 'a'), commitLink(3, 'c', 'b')}, "abc"},
      {"two that part, and one goes on",
       {commitLink(1, 'a', 0), commitLink(2, 'b', 'a'), commitLink(1, 'x', 0, 1), commitLink(2, 'y', 'x'),
        commitLink(3, 'c', 'b')},
       "abc"},
      {"one follows another commit of the number before",
       {commitLink(1, 'a', 0), commitLink(2, 'b', 'a'), checkpointLink(2, 'x', 'w'), commitLink(3, 'y', 'x')},
       "xy"},
      {"one follows a commit that is not there, though there is another of that number",
       {commitLink(1, 'a', 0), commitLink(2, 'b', 'a'), commitLink(3, 'y', 'x')},
       "ab"},
      {"of two with one number the name that comes first",
       {commitLink(1, 'a', 0), checkpointLink(2, 'y', 'x'), commitLink(2, 'b', 'a')},
       "ab"},
      {"a gap", {commitLink(1, 'a', 0), commitLink(3, 'c', 'b')}, "a"},
      {"a first commit with something before it", {commitLink(1, 'a', 'x')}, ""},
      {"no first one", {commitLink(2, 'b', 'a'), commitLink(3, 'c', 'b')}, ""},
      {"a damaged one in between",
       {commitLink(1, 'a', 0), commitLink(2, 'B', 'a'), commitLink(3, 'c', 'b')},
       "a"},
  };
  for (const auto& row : rows) EXPECT_EQ(chainAmong(row.commits), row.chain) << row.phrase;
}

TEST(Survey, BeginsAtTheLastWholeCheckpoint) {
  const auto commits = [](bool isWhole) {
    return std::vector<Link>{commitLink(1, 'a', 0), checkpointLink(2, 'b', 'a'), commitLink(3, 'c', 'b'),
                             checkpointLink(4, 'd', 'c', isWhole), commitLink(5, 'e', 'd')};
  };
  EXPECT_EQ(chainAmong(commits(true)), "de");
  EXPECT_EQ(chainAmong(commits(false)), "bcde");
  EXPECT_EQ(chainAmong({checkpointLink(4, 'd', 'c', false), commitLink(5, 'e', 'd')}), "")
      << "with nothing older";
}

TEST(Survey, PassesBySlotsWhoseCommitIsDamagedAndNoOthers) {
  EXPECT_EQ(chainAmong({commitLink(1, 'a', 0), commitLink(2, 'B', 'a'), commitLink(2, 'c', 'a', 1)}), "ac");
  EXPECT_EQ(chainAmong({commitLink(1, 'a', 0), commitLink(2, 'b', 'a'), commitLink(2, 'c', 'a', 1),
                        commitLink(3, 'd', 'c')}),
            "ab")
      << "the first one counts";
  EXPECT_EQ(chainAmong({commitLink(1, 'A', 0), commitLink(1, 'b', 0, 1), commitLink(2, 'C', 'b'),
                        commitLink(2, 'D', 'b', 1), commitLink(2, 'e', 'b', 2)}),
            "be");
}

TEST(Survey, TheLastCommitOfAGenerationIsAChainByItself) {
  EXPECT_EQ(chainAmong({lastLink(7, 'g', 'f')}), "g");
  EXPECT_EQ(chainAmong({commitLink(1, 'a', 0), lastLink(2, 'b', 'a'), commitLink(3, 'c', 'b')}), "b")
      << "nothing follows it";
}

}  // namespace
}  // namespace corvane::pelto::chain
