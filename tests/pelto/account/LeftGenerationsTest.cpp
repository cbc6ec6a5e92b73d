// What changes of the account's key leave at the place.

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "tests/pelto/account/ComputersAtPlace.h"

namespace corvane::pelto {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

class LeftGenerationsTest : public ComputersAtPlace {
 protected:
  LeftGenerationsTest() : ComputersAtPlace({"first", "second", "third"}) { give("ant"); }
};

TEST_F(LeftGenerationsTest, AllButTheLastCommitIsRemovedAfterThirtyDaysByThePlacesClock) {
  fs::create_directory(place + "/passphrase");
  for (const std::string& each : {folder, std::string(32, '0')})
    std::ofstream(place + "/passphrase/" + each + "-1") << "sealed";
  takeOut();
  const std::size_t before = objects(folder).size();
  ASSERT_THAT(left(), ElementsAre(testing::Key(folder)));
  platform.clock.time.seconds += 365 * kDay;
  exchangeAWeekLater();
  EXPECT_EQ(objects(folder).size(), before) << "this computer's clock does not count";
  EXPECT_THAT(objects("passphrase"), ElementsAre(HasSubstr(std::string(32, '0'))));

  age(folder, 31);
  exchangeAWeekLater();
  EXPECT_THAT(objects(folder), ElementsAre(place + '/' + folder + "/c/" + left().at(folder)));
  exchangeAWeekLater();
  EXPECT_THAT(left(), IsEmpty()) << "there is nothing more to be done";
  EXPECT_EQ(objects(folder).size(), 1u);
}

TEST_F(LeftGenerationsTest, WhoWasAwayFollowsAndWhoIsTakenOutIsToldSoAllTheSame) {
  takeOut();
  give("bee");
  age(folder, 31);
  exchangeAWeekLater();
  ASSERT_EQ(objects(folder).size(), 1u);
  use("second");
  EXPECT_EQ(exchange().records.size(), 2u);
  EXPECT_EQ(userAccount()->membership.generation, 2);
  use("third");
  try {
    exchange();
    FAIL() << "it was taken out";
  } catch (const PlatformException& exception) {
    EXPECT_THAT(exception.reason(), HasSubstr("was taken out"));
  }
  EXPECT_EQ(objects(folder).size(), 1u) << "and gives nothing";
}

TEST_F(LeftGenerationsTest, WhatIsYoungerThanThirtyDaysKeepsAllTheRest) {
  takeOut();
  age(folder, 31);
  const std::size_t before = objects(folder).size();
  std::ofstream(place + "/" + folder + "/m/1") << "late";
  exchangeAWeekLater();
  EXPECT_EQ(objects(folder).size(), before + 1);
}

TEST_F(LeftGenerationsTest, NothingIsRemovedBeforeTheLastCommitIsThere) {
  takeOut();
  fs::remove(place + '/' + folder + "/c/" + left().at(folder));
  age(folder, 31);
  const std::size_t before = objects(folder).size();
  ASSERT_GT(before, 1u);
  removeLeftBehind(*placeOf(*userAccount(), 60), left(), Date{platform.clock.time.seconds + 365 * kDay});
  EXPECT_EQ(objects(folder).size(), before);
}

TEST_F(LeftGenerationsTest, AGenerationThatNeverBecameTheAccountsGoesAltogether) {
  // As after a kill before the last commit.
  const std::string begun(32, 'a');
  changeMembership(userAccountPath(), *userAccount(), [&](Membership& each) { each.left[begun] = ""; });
  for (const char* each : {"c", "m", "s"}) {
    fs::create_directories(place + '/' + begun + '/' + each);
    std::ofstream(place + '/' + begun + '/' + each + "/1") << "sealed";
  }
  exchangeAWeekLater();
  EXPECT_EQ(objects(begun).size(), 3u);
  age(begun, 31);
  exchangeAWeekLater();
  EXPECT_THAT(objects(begun), IsEmpty());
  exchangeAWeekLater();
  EXPECT_THAT(left(), IsEmpty());
}

TEST_F(LeftGenerationsTest, TheAccountsOwnGenerationIsNeverLeft) {
  takeOut();
  use("second");
  const std::string mine = folderNow();
  use("first");
  const std::string now = folderNow();
  // As after a kill between the last commit and the account's file of the one who changed the key.
  use("second");
  changeMembership(userAccountPath(), *userAccount(), [&](Membership& each) { each.left[now] = ""; });
  exchange();
  EXPECT_THAT(left(), ElementsAre(testing::Key(mine)));
}

}  // namespace
}  // namespace corvane::pelto
