// The real tools and an account at a place, a directory: two computers and nothing else.

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "tests/front/PlaceComputer.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace fs = std::filesystem;

class PlaceToolTest : public ::testing::Test {
 protected:
  // The second computer joins the first one's account, and both have synced.
  void meet() {
    ASSERT_EQ(first.ctl("account set '" + place + "'"), 0) << first.errors;
    first.write({"ant"});
    ASSERT_EQ(first.run("--register"), 0);
    ASSERT_EQ(first.sync(), 0);
    ASSERT_EQ(first.ctl("account invite"), 0);
    ASSERT_EQ(second.ctl("account join", first.printed), 0) << second.errors;
    second.write({"bee"});
    ASSERT_EQ(second.run("--register"), 0);
    ASSERT_EQ(second.sync(), 0);
    ASSERT_EQ(first.sync(), 0);
  }

  const TemporaryDirectory directory;
  const std::string place = directory.path();
  PlaceComputer first, second;
};

TEST_F(PlaceToolTest, TwoComputersMeet) {
  meet();
  EXPECT_THAT(first.titles(), UnorderedElementsAre("ant", "bee"));
  EXPECT_THAT(second.titles(), UnorderedElementsAre("ant", "bee"));
  EXPECT_THAT(first.log(), IsEmpty());
  EXPECT_THAT(second.log(), IsEmpty());
}

TEST_F(PlaceToolTest, ThePlaceLearnsNoTitleAndNoAddress) {
  meet();
  for (const auto& each : fs::recursive_directory_iterator(place)) {
    if (!each.is_regular_file()) continue;
    const std::string bytes = contentsOf(each.path());
    EXPECT_EQ(bytes.size() % 1024, 0u) << each.path();
    for (const char* word : {"ant", ".example", "bplist"})
      EXPECT_EQ(bytes.find(word), std::string::npos) << each.path();
  }
}

TEST_F(PlaceToolTest, SwitchingOffAsksNobody) {
  meet();
  fs::rename(place, place + "-elsewhere");
  EXPECT_EQ(first.run("--isregistered"), 0);
  EXPECT_EQ(first.run("--unregister"), 0);
  EXPECT_EQ(first.run("--isregistered"), 1);
  EXPECT_THAT(first.log(), IsEmpty());
  fs::rename(place + "-elsewhere", place);
  second.write({"ant", "bee", "cat"});
  EXPECT_EQ(second.sync(), 0);
  EXPECT_EQ(first.sync(), 0);
  EXPECT_THAT(first.titles(), UnorderedElementsAre("ant", "bee")) << "switched off";
}

// The place keeps, of each folder, what it had before.
void copyInto(const fs::path& to, const fs::path& from) {
  fs::remove_all(to);
  fs::copy(from, to, fs::copy_options::recursive);
}

class OlderPlaceTest : public PlaceToolTest {
 protected:
  OlderPlaceTest() {
    EXPECT_EQ(first.ctl("account set '" + place + "'"), 0);
    first.write({"ant"});
    EXPECT_EQ(first.run("--register"), 0);
    EXPECT_EQ(first.sync(), 0);
    copyInto(kept.path() + "/older", place);
    first.write({"ant", "bee"});
    EXPECT_EQ(first.sync(), 0);
    EXPECT_EQ(first.ctl("account invite"), 0);
  }
  void goBack() { copyInto(place, kept.path() + "/older"); }

  const TemporaryDirectory kept;
};

TEST_F(OlderPlaceTest, WhatGoesBackBeforeTheFirstExchangeIsNotBelieved) {
  ASSERT_EQ(second.ctl("account join", first.printed), 0) << second.errors;
  goBack();
  ASSERT_EQ(second.run("--register"), 0);
  ASSERT_EQ(second.sync(), 0);
  ASSERT_EQ(second.log().size(), 1u);
  EXPECT_THAT(second.log()[0], HasSubstr("in an older state than when this computer was invited"));
  ASSERT_EQ(first.sync(), 0);  // gives again what the place forgot
  ASSERT_EQ(second.sync(), 0);
  EXPECT_THAT(second.titles(), IsEmpty()) << "another history than that of the invitation";
  ASSERT_EQ(first.ctl("account invite"), 0);
  ASSERT_EQ(second.ctl("account remove"), 0);
  ASSERT_EQ(second.ctl("account join", first.printed), 0) << second.errors;
  ASSERT_EQ(second.run("--register"), 0);
  ASSERT_EQ(second.sync(), 0);
  EXPECT_THAT(second.titles(), UnorderedElementsAre("ant", "bee"));
}

TEST_F(OlderPlaceTest, ItIsNotJoined) {
  goBack();
  EXPECT_EQ(second.ctl("account join", first.printed), 1);
  EXPECT_THAT(second.errors, HasSubstr("in an older state than when this computer was invited"));
  EXPECT_FALSE(fs::exists(second.accountFile()));
  ASSERT_EQ(first.sync(), 0);
  ASSERT_EQ(first.ctl("account invite"), 0);
  EXPECT_EQ(second.ctl("account join", first.printed), 0) << second.errors;
}

TEST_F(PlaceToolTest, RemovingTheAccountForgetsTheChainToo) {
  meet();
  const fs::path chain = fs::path(first.accountFile()).parent_path() / "Chain.plist";
  EXPECT_TRUE(fs::exists(chain));
  EXPECT_EQ(first.ctl("account remove"), 0);
  EXPECT_FALSE(fs::exists(chain));
}

class TakingOutTest : public PlaceToolTest {
 protected:
  // Three computers, and the second one is taken out.
  void takeOutSecond() {
    meet();
    ASSERT_EQ(first.ctl("account invite"), 0);
    ASSERT_EQ(third.ctl("account join", first.printed), 0);
    third.write({"cat"});
    ASSERT_EQ(third.run("--register"), 0);
    for (PlaceComputer* each : {&third, &first, &second}) ASSERT_EQ(each->sync(), 0);
    oldInvitation = first.printed;
    ASSERT_EQ(first.ctl("account remove-computer " + second.identifier()), 0) << first.errors;
  }
  std::vector<std::string> computers() {
    EXPECT_EQ(first.ctl("account computers"), 0);
    std::vector<std::string> found;
    for (PlaceComputer* each : {&first, &second}) {
      if (first.printed.find(each->identifier()) != std::string::npos) found.push_back(each->identifier());
    }
    return found;
  }

  PlaceComputer third;
  std::string oldInvitation;
};

TEST_F(TakingOutTest, TheOthersGoOnAndTheOneTakenOutLearnsNothingMore) {
  takeOutSecond();
  third.write({"ant", "bee", "cat", "dog"});
  ASSERT_EQ(third.sync(), 0);
  ASSERT_EQ(first.sync(), 0);
  EXPECT_THAT(first.titles(), UnorderedElementsAre("ant", "bee", "cat", "dog"));
  EXPECT_THAT(third.titles(), UnorderedElementsAre("ant", "bee", "cat", "dog"));
  EXPECT_THAT(first.log(), IsEmpty());
  EXPECT_THAT(third.log(), IsEmpty());
  ASSERT_EQ(second.sync(), 0);
  EXPECT_THAT(second.titles(), UnorderedElementsAre("ant", "bee", "cat"));
  ASSERT_EQ(second.log().size(), 1u);
  EXPECT_THAT(second.log()[0], HasSubstr("This computer was taken out of the account"));
}

TEST_F(TakingOutTest, WhatIsDeletedStaysDeletedAndWhatIsEditedMeanwhileIsKept) {
  takeOutSecond();
  first.remove("ant");
  first.add("eel");
  ASSERT_EQ(first.sync(), 0);
  third.add("dog");
  ASSERT_EQ(third.sync(), 0);
  ASSERT_EQ(first.sync(), 0);
  for (PlaceComputer* each : {&first, &third})
    EXPECT_THAT(each->titles(), UnorderedElementsAre("bee", "cat", "dog", "eel"));
}

TEST_F(TakingOutTest, ComputersAreListedUntilTheyAreTakenOut) {
  meet();
  EXPECT_THAT(computers(), UnorderedElementsAre(first.identifier(), second.identifier()));
  EXPECT_EQ(first.ctl("account remove-computer nobody"), 1);
  EXPECT_EQ(first.ctl("account remove-computer " + first.identifier()), 1) << "itself";
  EXPECT_EQ(first.ctl("account remove-computer " + second.identifier()), 0);
  EXPECT_THAT(computers(), UnorderedElementsAre(first.identifier()));
}

TEST_F(TakingOutTest, AComputerWhoseCardAPutBackPlaceForgotLeavesItAgain) {
  const TemporaryDirectory kept;
  ASSERT_EQ(first.ctl("account set '" + place + "'"), 0);
  first.write({"ant"});
  ASSERT_EQ(first.run("--register"), 0);
  ASSERT_EQ(first.sync(), 0);
  copyInto(kept / "older", place);
  ASSERT_EQ(first.ctl("account invite"), 0);
  ASSERT_EQ(second.ctl("account join", first.printed), 0);
  second.write({"bee"});
  ASSERT_EQ(second.run("--register"), 0);
  ASSERT_EQ(second.sync(), 0);
  copyInto(place, kept / "older");
  EXPECT_THAT(computers(), ElementsAre(first.identifier()));
  ASSERT_EQ(second.sync(), 0);
  EXPECT_THAT(computers(), UnorderedElementsAre(first.identifier(), second.identifier()));
}

TEST_F(TakingOutTest, AnInvitationFromBeforeLetsNobodyIn) {
  takeOutSecond();
  PlaceComputer late;
  EXPECT_EQ(late.ctl("account join", oldInvitation), 1);
  EXPECT_THAT(late.errors, HasSubstr("has changed since this computer was invited"));
  EXPECT_FALSE(fs::exists(late.accountFile()));
  EXPECT_FALSE(fs::exists(pelto::chainPathBeside(late.accountFile())));
  ASSERT_EQ(first.ctl("account invite"), 0);
  ASSERT_EQ(late.ctl("account join", first.printed), 0) << late.errors;
  late.write({});
  ASSERT_EQ(late.run("--register"), 0);
  ASSERT_EQ(late.sync(), 0);
  EXPECT_THAT(late.titles(), UnorderedElementsAre("ant", "bee", "cat"));
}

TEST_F(TakingOutTest, WhoJoinedAndDidNotSyncBeforeTheKeyChangedHasToBeInvitedAnew) {
  meet();
  ASSERT_EQ(first.ctl("account invite"), 0);
  ASSERT_EQ(third.ctl("account join", first.printed), 0);
  ASSERT_EQ(first.ctl("account new-key"), 0) << first.errors;
  third.write({});
  ASSERT_EQ(third.run("--register"), 0);
  ASSERT_EQ(third.sync(), 0);
  EXPECT_THAT(third.titles(), IsEmpty());
  ASSERT_EQ(third.log().size(), 1u);
  EXPECT_THAT(third.log()[0], HasSubstr("before the account's key was changed"));
}

TEST_F(TakingOutTest, ANewKeyAloneTakesNobodyOut) {
  meet();
  ASSERT_EQ(first.ctl("account new-key"), 0) << first.errors;
  second.add("cat");
  ASSERT_EQ(second.sync(), 0);
  ASSERT_EQ(first.sync(), 0);
  EXPECT_THAT(first.titles(), UnorderedElementsAre("ant", "bee", "cat"));
  EXPECT_THAT(second.log(), IsEmpty());
  EXPECT_THAT(computers(), UnorderedElementsAre(first.identifier(), second.identifier()));
}

TEST_F(TakingOutTest, AComputerThatWasAwayFollowsTwoChangesOfTheKey) {
  takeOutSecond();
  ASSERT_EQ(first.ctl("account invite"), 0);
  PlaceComputer fourth;
  ASSERT_EQ(fourth.ctl("account join", first.printed), 0);
  ASSERT_EQ(fourth.run("--register"), 0);
  ASSERT_EQ(fourth.sync(), 0);
  ASSERT_EQ(first.ctl("account remove-computer " + fourth.identifier()), 0) << first.errors;
  first.write({"ant", "bee", "cat", "eel"});
  ASSERT_EQ(first.sync(), 0);
  ASSERT_EQ(third.sync(), 0);
  EXPECT_THAT(third.titles(), UnorderedElementsAre("ant", "bee", "cat", "eel"));
  EXPECT_THAT(third.log(), IsEmpty());
}

TEST_F(TakingOutTest, TheAccountsFileIsFoundAgainWhenTheKeyChangedAndTheFileDidNot) {
  takeOutSecond();
  // As after a kill between the last commit and the file.
  const std::string file = third.accountFile(), before = contentsOf(file);
  ASSERT_EQ(third.sync(), 0);
  EXPECT_NE(contentsOf(file), before);
  std::ofstream(file, std::ios::binary) << before;
  third.write({"ant", "bee", "cat", "fox"});
  ASSERT_EQ(third.sync(), 0);
  ASSERT_EQ(first.sync(), 0);
  EXPECT_THAT(first.titles(), UnorderedElementsAre("ant", "bee", "cat", "fox"));
}

}  // namespace
}  // namespace corvane
