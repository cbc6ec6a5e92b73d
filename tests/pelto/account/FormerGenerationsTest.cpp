// A place that is put back to before a change of the account's key.

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/chain/ChainHub.h"
#include "tests/pelto/account/ComputersAtPlace.h"

namespace corvane::pelto {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace fs = std::filesystem;

class FormerGenerationsTest : public ComputersAtPlace {
 protected:
  FormerGenerationsTest() : ComputersAtPlace({"first", "second", "third", "fourth"}) {
    give("ant");
    fs::copy(place, backup, fs::copy_options::recursive);
  }

  void putBack() {
    fs::remove_all(place);
    fs::copy(backup, place, fs::copy_options::recursive);
    platform.clock.time.seconds += 60;
  }
  RemoteChanges exchangeAt(const std::string& name, const std::vector<HubState>& seen = {}) {
    use(name);
    return exchange(seen);
  }
  HubState giveAt(const std::string& name) {
    use(name);
    return give("of " + name);
  }
  void changeKeyAt(const std::string& name) {
    use(name);
    changeAccountKey(*userAccount(), {}, 60);
  }
  std::string failureAt(const std::string& name) {
    try {
      exchangeAt(name);
      return "";
    } catch (const PlatformException& exception) {
      return exception.reason();
    }
  }
  std::int64_t generationAt(const std::string& name) {
    use(name);
    return userAccount()->membership.generation;
  }
  std::vector<FormerGeneration> formerAt(const std::string& name) {
    use(name);
    return userAccount()->membership.former;
  }
  std::string lastOf(const FormerGeneration& former) const {
    return place + '/' + folder + "/c/" + former.last;
  }

  // Whoever remains has one key, and who was taken out is told so.
  void requireTogether(std::int64_t generation) {
    use("first");
    const std::string now = folderNow();
    for (const char* name : {"first", "second", "fourth"}) {
      exchangeAt(name);
      EXPECT_EQ(generationAt(name), generation) << name;
      EXPECT_EQ(folderNow(), now) << name;
    }
    EXPECT_THAT(failureAt("third"), HasSubstr("was taken out"));
    EXPECT_EQ(generationAt("third"), 1);
  }

  const std::string backup = platform.directory / "backup";
};

/// Who gives something after the place was put back, in turn, before all sync.
struct Order {
  std::string name;
  std::vector<std::string> computers;
};

void PrintTo(const Order& each, std::ostream* out) { *out << each.name; }

class KeyPutBackTest : public FormerGenerationsTest, public testing::WithParamInterface<Order> {};

TEST_P(KeyPutBackTest, WhoHasTheNewKeyHandsItToWhoHasNot) {
  takeOut();
  exchangeAt("second");
  putBack();
  for (const std::string& each : GetParam().computers) giveAt(each);
  requireTogether(2);
  const std::size_t before = objects(folder).size();
  platform.clock.time.seconds += kDay;
  requireTogether(2);
  EXPECT_EQ(objects(folder).size(), before) << "once";
}

INSTANTIATE_TEST_SUITE_P(After, KeyPutBackTest,
                         testing::ValuesIn(std::vector<Order>{
                             {"TheOneThatChangedItGave", {"first"}},
                             {"OneThatFollowedGave", {"second"}},
                             {"OneThatDidNotFollowGave", {"fourth"}},
                             {"TheOneTakenOutGave", {"third"}},
                             {"AllGaveUnderTheEarlierKeyFirst",
                              {"third", "fourth", "fourth", "first", "second"}},
                             {"AllGaveUnderTheNewKeyFirst", {"second", "first", "fourth"}},
                         }),
                         [](const auto& each) { return each.param.name; });

TEST_F(FormerGenerationsTest, APlaceThatForgotNothingButTheChangeIsGivenItWithinADay) {
  takeOut();
  exchangeAt("second");
  const FormerGeneration former = formerAt("first").front();
  ASSERT_TRUE(fs::remove(lastOf(former)));
  platform.clock.time.seconds += kDay;
  giveAt("fourth");
  EXPECT_EQ(generationAt("fourth"), 1);
  exchangeAt("first");
  requireTogether(2);
}

TEST_F(FormerGenerationsTest, APlaceThatLostEverythingIsGivenTheChange) {
  takeOut();
  exchangeAt("second");
  fs::remove_all(place);
  fs::create_directory(place);
  platform.clock.time.seconds += 60;
  exchangeAt("first");
  requireTogether(2);
}

TEST_F(FormerGenerationsTest, SeveralChangesAreHandedOnOneAfterTheOther) {
  takeOut();
  changeKeyAt("first");
  exchangeAt("second");
  ASSERT_EQ(generationAt("second"), 3);
  putBack();
  giveAt("fourth");
  exchangeAt("second");
  exchangeAt("fourth");
  EXPECT_EQ(generationAt("fourth"), 3);
  requireTogether(3);
}

TEST_F(FormerGenerationsTest, WhatWasGivenUnderTheEarlierKeyMeanwhileIsNoPartOfTheHistory) {
  use("fourth");
  const HubState common = exchange().now;
  takeOut();
  exchangeAt("second");
  putBack();
  const HubState lost = giveAt("fourth");
  exchangeAt("first");
  const RemoteChanges told = exchangeAt("fourth", {lost, common});
  EXPECT_NE(told.common, lost) << "or the computer would not give it again";
  EXPECT_EQ(generationAt("fourth"), 2);
}

TEST_F(FormerGenerationsTest, TheChangeStaysWhenWhatIsOldIsRemovedAnew) {
  takeOut();
  exchangeAt("second");
  age(folder, 31);
  use("first");
  exchangeAWeekLater();
  exchangeAWeekLater();
  ASSERT_THAT(left(), IsEmpty());
  putBack();
  fs::create_directory(place + "/passphrase");
  std::ofstream(place + "/passphrase/" + folder + "-1") << "sealed";
  giveAt("fourth");
  // Each of them knows another commit as the last one until it looks.
  exchangeAt("second");
  age(folder, 31);
  use("first");
  exchangeAWeekLater();
  EXPECT_THAT(objects(folder), ElementsAre(lastOf(formerAt("second").front())));
  EXPECT_THAT(objects("passphrase"), IsEmpty());
  requireTogether(2);
}

TEST_F(FormerGenerationsTest, AnotherChangeThatSomebodyMadeMeanwhileIsNotFollowedButTold) {
  takeOut();
  exchangeAt("second");
  putBack();
  changeKeyAt("fourth");
  const std::string theirs = folderNow();
  giveAt("first");
  EXPECT_NE(folderNow(), theirs) << "whoever was taken out could have made it";
  ASSERT_THAT(platform.log.messages,
              ElementsAre(AllOf(HasSubstr("The account at the directory " + place + " is in two parts"),
                                HasSubstr("`loomerctl account computers`"))));
  platform.log.expectMessages(platform.log.messages);
  giveAt("first");
  EXPECT_THAT(platform.log.messages, SizeIs(1)) << "once a day";
}

TEST_F(FormerGenerationsTest, WhoseCardThePlaceForgotGetsTheNextKeyIfItSyncsBeforeTheChange) {
  takeOut();
  for (const char* name : {"second", "fourth"}) exchangeAt(name);
  fs::remove_all(place + '/' + folderNow() + "/m");
  platform.clock.time.seconds += kDay;
  exchangeAt("second");
  changeKeyAt("first");
  exchangeAt("second");
  EXPECT_EQ(generationAt("second"), 3);
  EXPECT_THAT(failureAt("fourth"), HasSubstr("Another invitation lets it in again"));
  EXPECT_EQ(generationAt("fourth"), 2);
}

TEST_F(FormerGenerationsTest, WhoWasTakenOutGivesNoChangeAgain) {
  takeOut();
  use("first");
  const String second = [&] {
    use("second");
    return userAccount()->computer;
  }();
  exchangeAt("second");
  use("first");
  changeAccountKey(*userAccount(), second, 60);
  const FormerGeneration former = formerAt("second").front();
  ASSERT_TRUE(fs::remove(lastOf(former)));
  platform.clock.time.seconds += kDay;
  EXPECT_THAT(failureAt("second"), HasSubstr("was taken out"));
  EXPECT_FALSE(fs::exists(lastOf(former)));
}

// Else computers could be sent in a circle without end by one that belonged to the account.
TEST_F(FormerGenerationsTest, AChangeThatLeadsToNoLaterGenerationIsNotFollowed) {
  changeKeyAt("first");
  exchangeAt("second");
  const std::string before = folderNow();
  use("first");
  const Account account = *userAccount();
  const Membership& membership = account.membership;
  const AccountKey another = AccountKey::random();
  const Roster roster = computersOf(account, 60);
  const auto at = placeOf(account, 60);
  const Sealer present(*membership.key, kAccount, 2), next(another, kAccount, 2);
  ChainHub hub(*at, present, {.keptPath = userChainPath(), .computer = account.computer});
  const GenerationChange change = changeGeneration(*membership.key, another, kAccount, 2, roster, {});
  ASSERT_EQ(hub.changeGeneration(next, change), HubPushed::Outcome::done);

  EXPECT_THAT(failureAt("second"), HasSubstr("Another invitation lets it in again"));
  EXPECT_EQ(folderNow(), before);
}

TEST_F(FormerGenerationsTest, TheLastEightAreKept) {
  for (int i = 0; i < 10; ++i) changeKeyAt("first");
  const auto former = formerAt("first");
  ASSERT_EQ(std::ssize(former), kMostFormerGenerations);
  for (std::size_t i = 0; i < former.size(); ++i)
    EXPECT_EQ(former[i].generation, static_cast<std::int64_t>(3 + i));
}

TEST_F(FormerGenerationsTest, AnEarlierKeyIsInABoxForThisComputerAlone) {
  takeOut();
  const FormerGeneration former = formerAt("first").front();
  use("first");
  const Membership membership = userAccount()->membership;
  const auto sealer = sealerOf(former, membership.account, *membership.keys);
  ASSERT_TRUE(sealer);
  EXPECT_EQ(sealer->folder(), folder);
  use("fourth");
  EXPECT_FALSE(sealerOf(former, membership.account, *userAccount()->membership.keys));
}

TEST_F(FormerGenerationsTest, WhatIsKeptOfItGoesWithTheAccount) {
  takeOut();
  exchange();
  const std::string kept = formerChainPathBeside(userAccountPath(), 1);
  struct stat status {};
  ASSERT_EQ(::stat(kept.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  removeAccount(userAccountPath());
  EXPECT_FALSE(fs::exists(kept));
}

}  // namespace
}  // namespace corvane::pelto
