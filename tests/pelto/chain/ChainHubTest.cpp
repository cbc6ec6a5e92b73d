#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>

#include "tests/pelto/chain/ChainHubFixture.h"

namespace corvane {
namespace {

using namespace pelto;
using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(ChainHubTest, AQuietExchangeAsksForTheNewestCommitAndTheNextSlotAtOnce) {
  a->give({bookmark(1, "one")});
  a->takeIn();
  place.calls.clear();
  const auto kept = platform.files.attributesIfKnown(platform.directory / "home of a/Chain.plist");
  a->takeIn();
  EXPECT_THAT(place.calls, ElementsAre("get"));
  EXPECT_EQ(platform.files.attributesIfKnown(platform.directory / "home of a/Chain.plist")->identity,
            kept->identity)
      << "nothing is written";
}

TEST_F(ChainHubTest, AnEditIsOneLookOnePutAndAnotherLook) {
  a->give({bookmark(1, "one")});
  place.calls.clear();
  a->give({bookmark(2, "two")});
  EXPECT_THAT(place.calls, ElementsAre("get", "put new", "get"));
}

TEST_F(ChainHubTest, APushIsDurableBeforeAnythingOfItIsSent) {
  const std::string path = platform.directory / "home of a/Chain.plist";
  const chain::KeptFile kept(path, ChainComputer::sealerOf(1).folder());
  std::vector<HubRecord> many;
  for (int i = 0; i < 2'100; ++i) many.push_back(bookmark(10 + i, "n"));
  a->takeIn();
  std::vector<std::string> sent;
  place.onCall = [&](const std::string& call) {
    if (call != "put" && call != "put new") return;
    sent.push_back(call);
    const chain::KeptContents contents = kept.read();
    EXPECT_TRUE(contents.kept.undecided);
    EXPECT_FALSE(contents.commit.empty());
    EXPECT_EQ(contents.segments.size(), 2u);
  };
  EXPECT_TRUE(a->push(many));
  EXPECT_THAT(sent, ElementsAre("put", "put new"));
}

TEST_F(ChainHubTest, APlaceThatKeepsNothingIsToldSoAfterThreeTries) {
  a->takeIn();
  place.onCall = [this](const std::string& call) {
    if (call == "put new done") place.objects.clear();
  };
  place.calls.clear();
  EXPECT_THAT(failureOf([&] { a->push({bookmark(1, "one")}); }), HasSubstr("does not stay"));
  EXPECT_EQ(std::count(place.calls.begin(), place.calls.end(), "put new"), 3);
  place.onCall = nullptr;
  a->takeIn();
  b->takeIn();
  EXPECT_THAT(b->names(), ElementsAre("one")) << "it is given by the next exchange";
}

TEST_F(ChainHubTest, WhoIsSlowerIsOvertaken) {
  a->takeIn();
  b->takeIn();
  EXPECT_TRUE(a->push({bookmark(1, "one")}));
  EXPECT_EQ(b->push({bookmark(2, "two")}).outcome, HubPushed::Outcome::overtaken);
  EXPECT_TRUE(b->give({bookmark(2, "two")}));
  a->takeIn();
  EXPECT_THAT(a->names(), ElementsAre("one", "two"));
}

TEST_F(ChainHubTest, ManyRecordsGoIntoSegmentsAndNoneIsUploadedTwice) {
  std::vector<HubRecord> many;
  for (int i = 0; i < 20'000; ++i) many.push_back(bookmark(i, "n" + std::to_string(i)));
  a->give(many);
  EXPECT_EQ(place.objects.size(), 1u + 10u);
  b->takeIn();
  EXPECT_EQ(b->records.size(), many.size());
}

TEST_F(ChainHubTest, ACheckpointServesNewComputersAndThoseThatWereAway) {
  b->give({bookmark(1, "one"), bookmark(2, "two")});
  const int given = giveUntilCheckpoint(*a);
  EXPECT_GT(given, 60);
  HubRecord deleted = bookmark(2, "two");
  deleted.deleted = true;
  a->give({deleted});
  const RemoteChanges away = b->takeIn();
  EXPECT_FALSE(away.whole) << "its state is one of those that the checkpoint tells of";
  EXPECT_EQ(away.records.size(), static_cast<std::size_t>(given) + 1);
  const auto late = computer("late");
  place.calls.clear();
  late->takeIn();
  EXPECT_LT(place.calls.size(), 10u) << "what lies before the checkpoint is not read";
  EXPECT_EQ(late->names(), b->names());
  EXPECT_TRUE(late->names().contains("one"));
  EXPECT_FALSE(late->names().contains("two"));
}

TEST_F(ChainHubTest, WhatWasLostAndIsGivenAgainIsPartOfTheHistoryAlsoAfterACheckpoint) {
  b->give({bookmark(1, "one")});
  const HubState common = a->takeIn().now;
  const HubState older{common.account, 7, id(7)}, newer{common.account, 8, id(8)};
  const HubState unknown{common.account, 9, id(9)};
  ASSERT_TRUE(a->chain->push({common, id(100), {}, {newer, common, older}}));
  for (const char* when : {"at once", "after a checkpoint"}) {
    SCOPED_TRACE(when);
    b->begin();
    EXPECT_TRUE(b->chain->hasPush(newer.pushId));
    EXPECT_FALSE(b->chain->hasPush(unknown.pushId));
    b->seen = {unknown, newer, older, common};
    const RemoteChanges told = b->takeIn();
    EXPECT_EQ(told.givenAgain, newer);
    EXPECT_EQ(told.common, common);
    EXPECT_THAT(told.pastGivenAgain, ElementsAre(newer, older));
    giveUntilCheckpoint(*a);
  }
}

TEST_F(ChainHubTest, ANewGenerationKnowsTheWholePast) {
  HubRecord one = bookmark(1, "one");
  one.origins = {id(11), id(12), id(13), id(14), id(15)};
  b->give({one});
  const HubState common = a->takeIn().now;
  const HubState older{common.account, 7, id(7)}, newer{common.account, 8, id(8)};
  const HubState unknown{common.account, 9, id(9)};
  ASSERT_TRUE(a->chain->push({common, id(100), {}, {newer, older}}));
  a->takeIn();
  const GenerationChange change{2, {}, {}};
  ASSERT_EQ(a->chain->changeGeneration(ChainComputer::sealerOf(2), change), HubPushed::Outcome::done);
  ChainComputer next(place, platform.directory / "home of a, again/Chain.plist", 2);
  next.seen = {unknown, newer, older, common};
  const RemoteChanges told = next.takeIn();
  EXPECT_EQ(told.common, common);
  EXPECT_EQ(told.givenAgain, newer);
  EXPECT_THAT(told.pastGivenAgain, ElementsAre(newer, older));
  EXPECT_THAT(told.past, testing::Contains(HubState{common.account, 2, id(100)}));
  EXPECT_TRUE(next.chain->hasPush(id(100)));
  EXPECT_TRUE(next.chain->hasPush(newer.pushId));
  ASSERT_EQ(told.records.size(), 1u);
  EXPECT_EQ(told.records[0].origins, one.origins);
}

TEST_F(ChainHubTest, DeletionsAreToldForFourHundredDays) {
  constexpr double kDay = 86'400;
  const auto c = computer("c");
  a->give({bookmark(1, "one"), bookmark(2, "two")});
  b->takeIn();
  c->takeIn();
  HubRecord deletion;
  deletion.id = id(1);
  deletion.deleted = true;
  a->give({deletion});
  platform.clock.time.seconds += 399 * kDay;
  giveUntilCheckpoint(*a);
  const RemoteChanges early = b->takeIn();
  EXPECT_FALSE(early.whole);
  EXPECT_EQ(std::count_if(early.records.begin(), early.records.end(),
                          [](const HubRecord& each) { return each.deleted; }),
            1);
  EXPECT_FALSE(b->names().contains("one"));
  platform.clock.time.seconds += 2 * kDay;
  giveUntilCheckpoint(*a);
  const RemoteChanges late = c->takeIn();
  EXPECT_TRUE(late.whole) << "what is not there any more is deleted";
  EXPECT_EQ(std::count_if(late.records.begin(), late.records.end(),
                          [](const HubRecord& each) { return each.deleted; }),
            0);
  EXPECT_FALSE(c->names().contains("one"));
  EXPECT_TRUE(c->names().contains("two"));
}

TEST_F(ChainHubTest, TheKeyIsChangedAfterWhatOthersGaveMeanwhile) {
  a->takeIn();
  b->give({bookmark(1, "one")});
  const GenerationChange change{2, {}, {}};
  ASSERT_EQ(a->chain->changeGeneration(ChainComputer::sealerOf(2), change), HubPushed::Outcome::done);
  ChainComputer next(place, platform.directory / "home of a, again/Chain.plist", 2);
  next.takeIn();
  EXPECT_THAT(next.names(), ElementsAre("one"));
}

TEST_F(ChainHubTest, AGenerationEndsAgainWhereThePlaceForgotThat) {
  b->give({bookmark(1, "one")});
  a->takeIn();
  const auto before = place.objects;
  const GenerationChange change{2, {}, {}};
  ASSERT_EQ(a->chain->changeGeneration(ChainComputer::sealerOf(2), change), HubPushed::Outcome::done);
  place.objects = before;
  b->give({bookmark(2, "two")});
  // Another one comes between, as it may at any time.
  bool hasCome = false;
  place.onCall = [&](const std::string& call) {
    if (hasCome || call != "put new") return;
    hasCome = true;
    b->give({bookmark(3, "three")});
  };
  a->begin();
  EXPECT_EQ(a->chain->endAgain(change), change);
  EXPECT_TRUE(hasCome);
  b->takeIn();
  EXPECT_EQ(b->chain->change(), change);
  // What has ended stays as it is.
  const std::size_t objects = place.objects.size();
  EXPECT_EQ(b->chain->endAgain({2, {String(id(5))}, {}}), change);
  EXPECT_EQ(place.objects.size(), objects);
}

TEST_F(ChainHubTest, OldCommitsAreCollectedByThePlacesClockAlone) {
  const std::string mine = a->takeIn().now.account.toString();
  giveUntilCheckpoint(*a);
  giveUntilCheckpoint(*a);
  const std::size_t before = place.objects.size();
  platform.clock.time.seconds += 365.0 * 86'400;
  place.clockAhead = -365.0 * 86'400;
  giveUntilCheckpoint(*a);
  EXPECT_GT(place.objects.size(), before) << "this computer's clock is a year ahead, and nothing is old";
  platform.clock.time.seconds += 31.0 * 86'400;
  giveUntilCheckpoint(*a);
  EXPECT_LT(place.objects.size(), before);
  b->takeIn();
  EXPECT_EQ(b->records.size(), a->records.size());
}

TEST_F(ChainHubTest, NoSegmentIsCollectedWhileACommitCannotBeRead) {
  a->takeIn();
  const auto newObjects = [this, before = place.objects](const char* folder) {
    std::vector<std::string> names;
    for (const auto& each : place.objects) {
      if (!before.contains(each.first) && each.first.find(folder) != std::string::npos)
        names.push_back(each.first);
    }
    return names;
  };
  std::vector<HubRecord> records;
  for (int i = 0; i < 2'100; ++i) records.push_back(bookmark(10 + i, "n"));
  a->give(records);
  const std::vector<std::string> commit = newObjects("/c/"), segments = newObjects("/s/");
  ASSERT_EQ(segments.size(), 2u);
  const auto areThere = [&] {
    return place.objects.contains(segments[0]) && place.objects.contains(segments[1]);
  };
  giveUntilCheckpoint(*a);
  giveUntilCheckpoint(*a);
  platform.clock.time.seconds += 31.0 * 86'400;
  place.objects.at(commit.front()).bytes = "damaged";
  giveUntilCheckpoint(*a);
  EXPECT_FALSE(place.objects.contains(commit.front()));
  EXPECT_TRUE(areThere());
  giveUntilCheckpoint(*a);
  EXPECT_FALSE(areThere()) << "all that is left can be read";
}

TEST_F(ChainHubTest, ALostOrDamagedFileOfWhatIsKeptCostsRequestsAlone) {
  const std::string path = platform.directory / "home of a/Chain.plist";
  a->give({bookmark(1, "one")});
  std::filesystem::remove(path);
  b->give({bookmark(2, "two")});
  a->takeIn();
  EXPECT_THAT(a->names(), ElementsAre("one", "two"));
  a->begin();
  platform.realFiles.write(path, "damaged");
  b->give({bookmark(3, "three")});
  a->takeIn();
  EXPECT_EQ(a->names().size(), 3u);
  ASSERT_EQ(platform.log.messages.size(), 1u);
  EXPECT_THAT(platform.log.messages[0], HasSubstr("Chain.plist can't be used"));
  platform.log.expectMessages(platform.log.messages);
}

TEST_F(ChainHubTest, OtherProcessesOfTheComputerWaitTheirTurn) {
  a->give({bookmark(1, "one")});
  std::error_code error;
  EXPECT_FALSE(platform.realFiles.hold(platform.directory / "home of a/Chain.plist-lock", error));
  EXPECT_EQ(error, std::errc::device_or_resource_busy);
  a->chain.reset();
  platform.files.failAlways(FileOperation::hold, std::errc::device_or_resource_busy);
  EXPECT_THAT(failureOf([&] { computer("a")->takeIn(); }), HasSubstr("Can't lock"));
}

TEST_F(ChainHubTest, CutOffAtAnyRequestItLosesAndDoublesNothing) {
  for (int at = 1;; ++at) {
    SCOPED_TRACE(at);
    place.objects.clear();
    a = computer("a " + std::to_string(at));
    b = computer("b " + std::to_string(at));
    b->give({bookmark(1, "one")});
    int calls = 0;
    place.onCall = [&](const std::string&) {
      if (++calls == at) throw PlaceException("It was cut off.");
    };
    std::vector<HubRecord> many;
    for (int i = 0; i < 2'500; ++i) many.push_back(bookmark(10 + i, "n" + std::to_string(i)));
    const std::string failure = failureOf([&] { a->give(many); });
    place.onCall = nullptr;
    if (calls < at) break;
    EXPECT_EQ(failure, "It was cut off.");
    // As killed: what it knows is in its file.
    auto again = computer("a " + std::to_string(at));
    a.reset();
    const RemoteChanges remote = again->takeIn();
    if (again->records.size() == 1) {
      EXPECT_TRUE(again->push(many));
    }
    EXPECT_EQ(again->records.size(), 2'501u);
    EXPECT_EQ(again->seen.front().revision, 2) << "given once";
    b->takeIn();
    EXPECT_EQ(b->records, again->records);
  }
}

TEST_F(ChainHubTest, ASegmentMissingForADayIsPassedByAndItsWriterIsToldSo) {
  b->give({bookmark(1, "one")});
  std::vector<HubRecord> many;
  for (int i = 0; i < 2'500; ++i) many.push_back(bookmark(10 + i, "n" + std::to_string(i)));
  a->give(many);
  // A second one is missing, too, which shows only once the first is passed by.
  for (HubRecord& each : many) each.name = each.name.toString() + ".2";
  a->give(many);
  std::erase_if(place.objects, [](const auto& each) { return each.first.find("/s/") != std::string::npos; });
  EXPECT_THAT(failureOf([&] { b->takeIn(); }), HasSubstr("is missing"));
  platform.clock.time.seconds += 80'000;
  EXPECT_THAT(failureOf([&] { b->takeIn(); }), HasSubstr("If it stays missing for a day"));
  platform.clock.time.seconds += 10'000;
  EXPECT_THAT(failureOf([&] { b->takeIn(); }), HasSubstr("If it stays missing for a day"));
  platform.clock.time.seconds += 90'000;
  b->takeIn();
  EXPECT_THAT(b->names(), ElementsAre("one"));
  const RemoteChanges remote = a->takeIn();
  ASSERT_TRUE(remote.common);
  EXPECT_EQ(remote.common->revision, 1) << "what it gave is no part of the history";
  EXPECT_TRUE(remote.whole);
  EXPECT_TRUE(a->push(many));
  b->takeIn();
  EXPECT_EQ(b->records.size(), 2'501u);
}

class LostSnapshotTest : public ChainHubTest {
 protected:
  // What the newest checkpoint names, once one is made.
  std::vector<std::string> snapshot() {
    const MemoryPlace::Objects before = place.objects;
    giveUntilCheckpoint(*a);
    std::vector<std::string> names;
    for (const auto& each : place.objects) {
      if (!before.contains(each.first) && each.first.find("/s/") != std::string::npos)
        names.push_back(each.first);
    }
    return names;
  }
  void damage(const std::vector<std::string>& names) {
    for (const std::string& each : names) place.objects.at(each).bytes[100] ^= 1;
  }
  std::int64_t commits() const {
    return std::count_if(place.objects.begin(), place.objects.end(),
                         [](const auto& each) { return each.first.find("/c/") != std::string::npos; });
  }
};

TEST_F(LostSnapshotTest, WhatIsOlderIsReadInsteadAndACheckpointReplacesIt) {
  a->give({bookmark(1, "one")});
  for (const char* newcomer : {"with all commits", "after a checkpoint"}) {
    SCOPED_TRACE(newcomer);
    damage(snapshot());
    const std::int64_t before = commits();
    const auto late = computer(newcomer), later = computer(newcomer + std::string(", later"));
    const RemoteChanges remote = late->takeIn();
    EXPECT_EQ(late->names(), a->names());
    EXPECT_EQ(commits(), before + 1);
    EXPECT_TRUE(late->push({bookmark(2, newcomer)})) << "told of the state that it has made";
    place.calls.clear();
    later->takeIn();
    EXPECT_LT(place.calls.size(), 10u) << "the new checkpoint is read";
    EXPECT_EQ(later->names(), late->names());
    const RemoteChanges known = a->takeIn();
    EXPECT_EQ(known.common->revision, remote.now.revision - 1) << "all states go on";
    EXPECT_EQ(a->names(), late->names());
  }
}

TEST_F(LostSnapshotTest, AMissingPartIsLikeADamagedOne) {
  a->give({bookmark(1, "one")});
  place.objects.erase(snapshot().back());
  const std::int64_t before = commits();
  const auto late = computer("late"), later = computer("later");
  late->takeIn();
  EXPECT_EQ(late->names(), a->names());
  EXPECT_EQ(commits(), before + 1);
  EXPECT_TRUE(late->push({bookmark(2, "two")}));
  place.calls.clear();
  later->takeIn();
  EXPECT_LT(place.calls.size(), 10u) << "the new checkpoint is read";
  EXPECT_EQ(later->names(), late->names());
}

TEST_F(LostSnapshotTest, WhatCanStandInForItIsNotCollected) {
  a->give({bookmark(1, "one")});
  giveUntilCheckpoint(*a);
  giveUntilCheckpoint(*a);
  platform.clock.time.seconds += 31.0 * 86'400;
  damage(snapshot());
  const auto late = computer("late");
  late->takeIn();
  EXPECT_EQ(late->names(), a->names());
}

TEST_F(LostSnapshotTest, WithNothingOlderWhoIsNewWaitsForADayAndTheOthersGiveAllAgain) {
  a->give({bookmark(1, "one")});
  const std::vector<std::string> lost = snapshot();
  std::erase_if(place.objects, [&](const auto& each) {
    const auto slot = chain::slotNamed(each.first.substr(each.first.rfind('/') + 1));
    return slot && slot->number < a->seen.front().revision;
  });
  damage(lost);
  a->give({bookmark(2, "two")});
  for (const double seconds : {0.0, 86'000.0}) {
    platform.clock.time.seconds += seconds;
    const std::string failure = failureOf([&] { computer("late")->takeIn(); });
    EXPECT_THAT(failure, HasSubstr("this computer waits"));
    EXPECT_THAT(failure, HasSubstr("give that again when they sync"));
  }
  platform.clock.time.seconds += 1'000;
  const auto late = computer("late");
  late->takeIn();
  EXPECT_THAT(late->names(), ElementsAre("two"));
  std::vector<HubRecord> all;
  for (const auto& [id, name] : a->records) {
    all.push_back(bookmark(0, name));
    all.back().id = id;
  }
  const std::set<std::string> names = a->names();
  const RemoteChanges remote = a->takeIn();
  EXPECT_FALSE(remote.common && remote.common->revision > 0) << "no state from before goes on";
  EXPECT_TRUE(remote.whole);
  EXPECT_TRUE(a->push(all));
  late->takeIn();
  EXPECT_EQ(late->names(), names);
}

class LastCommitTest : public ChainHubTest {
 protected:
  // a has ended the generation; answers the name of the last commit.
  std::string end() {
    const AccountKey key = AccountKey(std::string(AccountKey::kBytes, 'k'));
    const AccountKey next = AccountKey(std::string(AccountKey::kBytes, 'n'));
    const std::string account = a->seen.front().account.toString();
    a->begin();
    const GenerationChange change = changeGeneration(key, next, account, 2, {}, {});
    EXPECT_EQ(a->chain->changeGeneration(Sealer(next, account, 2), change), HubPushed::Outcome::done);
    std::string last;
    for (const auto& each : place.objects) {
      const auto slot = chain::slotNamed(each.first.substr(each.first.rfind('/') + 1));
      if (slot && slot->number == a->seen.front().revision + 1) last = each.first;
    }
    return last;
  }
};

TEST_F(LastCommitTest, HandsTheKeyOverWhateverElseIsGone) {
  b->give({bookmark(1, "one")});
  a->give({bookmark(2, "two")});
  const std::string last = end();
  std::erase_if(place.objects, [&](const auto& each) { return each.first != last; });
  const auto late = computer("late");
  for (ChainComputer* each : {b.get(), late.get()}) {
    each->begin();
    ASSERT_TRUE(each->chain->change());
    EXPECT_EQ(each->chain->change()->generation, 2);
  }
}

TEST_F(LastCommitTest, NothingFollowsIt) {
  b->give({bookmark(1, "one")});
  a->takeIn();
  std::vector<HubRecord> many;
  for (int i = 0; i < 2'500; ++i) many.push_back(bookmark(10 + i, "n" + std::to_string(i)));
  a->give(many);
  end();
  std::erase_if(place.objects, [](const auto& each) { return each.first.find("/s/") != std::string::npos; });
  const std::size_t before = place.objects.size();
  for (int days = 0; days < 3; ++days) {
    b->takeIn();
    EXPECT_EQ(b->push({bookmark(3, "three")}).outcome, HubPushed::Outcome::overtaken);
    platform.clock.time.seconds += 90'000;
  }
  EXPECT_EQ(place.objects.size(), before) << "what is missing before it is not passed by";
  EXPECT_TRUE(b->chain->change());
}

class DamagedSlotTest : public ChainHubTest, public testing::WithParamInterface<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(Lengths, DamagedSlotTest, testing::Values(0, 1, 5 << 20, 17 << 20));

TEST_P(DamagedSlotTest, ASlotThatIsDamagedForGoodIsPassedBy) {
  b->give({bookmark(1, "one")});
  a->give({bookmark(2, "two")});
  place.objects.rbegin()->second.bytes = std::string(GetParam(), 'x');
  const std::string name = place.objects.rbegin()->first;
  b->takeIn();
  EXPECT_THAT(failureOf([&] { b->push({bookmark(3, "three")}); }), HasSubstr("holds a damaged object"));
  EXPECT_THAT(failureOf([&] { a->takeIn(); }), HasSubstr(name.substr(name.rfind('/'))))
      << "it was good before";
  platform.clock.time.seconds += 601;
  EXPECT_TRUE(b->give({bookmark(3, "three")}));
  EXPECT_TRUE(place.objects.contains(name + "-1"));
  const RemoteChanges remote = a->takeIn();
  EXPECT_EQ(remote.common->revision, 1);
  EXPECT_TRUE(a->push({bookmark(2, "two")}));
  b->takeIn();
  EXPECT_EQ(b->names().size(), 3u);
}

// The place goes back while one reads, and gets a request from before after that.
TEST_F(ChainHubTest, WhatIsTakenIsLookedAtOnceMoreBeforeItCounts) {
  a->give({bookmark(1, "one")});
  b->takeIn();
  a->give({bookmark(2, "two")});
  const std::string second = place.objects.rbegin()->first;
  a->give({bookmark(3, "three")});
  int gets = 0;
  place.onCall = [&](const std::string& call) {
    if (call == "get done" && ++gets == 1) place.objects.erase(second);
  };
  EXPECT_EQ(b->takeIn().now.revision, 1);
  EXPECT_THAT(b->names(), ElementsAre("one"));
}

TEST_F(ChainHubTest, ASlotThatHoldsOtherRubbishEachTimeIsNotPassedBy) {
  b->give({bookmark(1, "one")});
  a->give({bookmark(2, "two")});
  std::string& bytes = place.objects.rbegin()->second.bytes;
  for (const char* rubbish : {"x", "y", "z"}) {
    bytes = rubbish;
    EXPECT_THAT(failureOf([&] { b->give({bookmark(3, "three")}); }), HasSubstr("holds a damaged object"));
    platform.clock.time.seconds += 601;
  }
  EXPECT_TRUE(b->give({bookmark(3, "three")})) << "the same bytes for ten minutes";
}

}  // namespace
}  // namespace corvane
