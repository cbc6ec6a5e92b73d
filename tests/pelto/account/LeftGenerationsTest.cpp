// What changes of the account's key leave at the place.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "CorvaneSyncClient/platform/pelto/seal/Sealer.h"
#include "tests/fakes/StrictPlatform.h"

namespace corvane::pelto {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace fs = std::filesystem;

constexpr const char* kAccount = "A1C0B5A0-0F3D-4F7C-9B59-1F1B7F1F2A01";
constexpr double kDay = 86'400;

class LeftGenerationsTest : public testing::Test {
 protected:
  LeftGenerationsTest() {
    platform.uuids.inForm = true;
    fs::create_directory(place);
    const auto key = std::make_shared<AccountKey>(AccountKey::random());
    for (const char* name : {"first", "second", "third"}) {
      use(name);
      Membership membership{
          {},   kAccount,        1, key, std::make_shared<ComputerKeys>(ComputerKeys::random()),
          name, {kHubDataClass}, {}};
      writeAccount(userAccountPath(), {place, platform.uuids.newUuid(), {}, std::move(membership)});
      exchange();
    }
    use("first");
    give("ant");
    folder = Sealer(*key, kAccount, 1).folder();
  }

  void use(const std::string& name) {
    platform.process.home = platform.directory / name;
    fs::create_directory(platform.process.home);
  }
  RemoteChanges exchange() { return makePlaceHub(*userAccount(), 60)->remoteChanges({}); }
  void give(const std::string& name) {
    const auto hub = makePlaceHub(*userAccount(), 60);
    HubRecord record;
    record.id = platform.uuids.newUuid();
    record.name = name;
    ASSERT_TRUE(hub->push({hub->remoteChanges({}).now, platform.uuids.newUuid(), {record}}));
  }
  // The first one takes the third one out.
  void takeOut() {
    use("third");
    const String third = userAccount()->computer;
    use("first");
    changeAccountKey(*userAccount(), third, 60);
  }
  // All that lies in the folder at the place.
  std::vector<std::string> objects(const std::string& name) const {
    std::vector<std::string> found;
    if (!fs::exists(place + '/' + name)) return found;
    for (const auto& each : fs::recursive_directory_iterator(place + '/' + name)) {
      if (each.is_regular_file()) found.push_back(each.path());
    }
    return found;
  }
  void age(const std::string& name, double days) const {
    for (const std::string& each : objects(name)) {
      struct stat status {};
      ASSERT_EQ(::stat(each.c_str(), &status), 0);
      timespec times[2] = {status.st_atim, status.st_mtim};
      times[1].tv_sec -= static_cast<time_t>(days * kDay);
      ASSERT_EQ(::utimensat(AT_FDCWD, each.c_str(), times, 0), 0);
    }
  }
  // A computer looks after what is left when it renews its card.
  void exchangeAWeekLater() {
    platform.clock.time.seconds += 8 * kDay;
    exchange();
  }
  static LeftGenerations left() { return userAccount()->membership->left; }

  StrictPlatform platform;
  const std::string place = platform.directory / "place";
  std::string folder;
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
  EXPECT_EQ(userAccount()->membership->generation, 2);
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
  const std::string mine = Sealer(*userAccount()->membership->key, kAccount, 1).folder();
  use("first");
  const std::string now = Sealer(*userAccount()->membership->key, kAccount, 2).folder();
  // As after a kill between the last commit and the account's file of the one who changed the key.
  use("second");
  changeMembership(userAccountPath(), *userAccount(), [&](Membership& each) { each.left[now] = ""; });
  exchange();
  EXPECT_THAT(left(), ElementsAre(testing::Key(mine)));
}

}  // namespace
}  // namespace corvane::pelto
