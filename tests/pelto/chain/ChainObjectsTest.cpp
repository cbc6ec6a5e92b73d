#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/chain/ChainObjects.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/pelto/chain/MemoryPlace.h"

namespace corvane::pelto::chain {
namespace {

using testing::HasSubstr;

constexpr const char* kOurAccount = "0A000000-0000-4000-8000-000000000001";
constexpr const char* kOtherAccount = "0A000000-0000-4000-8000-000000000002";
constexpr const char* kWriter = "0F000000-0000-4000-8000-000000000001";

AccountKey keyOfLetters(char letter) { return AccountKey(std::string(AccountKey::kBytes, letter)); }

HubRecord namedRecord(const std::string& name) {
  HubRecord record;
  record.id = "0B000000-0000-4000-8000-000000000001";
  record.name = name;
  return record;
}

/// One small object of each kind at a place, each of them good.
class ChainObjectsTest : public testing::Test {
 protected:
  struct Kind {
    const char* what;
    std::string name;  ///< of the object
    /// Reads it as the product does; answers whether it was taken, and expects it named where it was not.
    std::function<bool()> isTaken;
  };

  ChainObjectsTest() {
    platform.uuids.inForm = true;
    const SegmentRef records = addSegment("records of a commit", writeSegment({namedRecord("two")}));
    const SegmentRef snapshot = addSegment("records of a snapshot", writeSegment({namedRecord("one")}));
    const SegmentRef history = addSegment("history", writeHistory({{1, kWriter, Date{3}}}));
    Commit holding = commitOf(1);
    holding.records = {namedRecord("one")};
    addCommit("commit with records", holding);
    Commit naming = commitOf(2);
    naming.segments = {records};
    addCommit("commit that names segments", naming);
    Commit checkpoint = commitOf(3);
    checkpoint.link.isCheckpoint = true;
    checkpoint.link.keeps = 2;
    checkpoint.snapshot = Snapshot{history, {snapshot}, 0};
    addCommit("checkpoint", checkpoint);
    Commit last = commitOf(4);
    last.link.isLast = true;
    last.change = GenerationChange{2, {}, {}};
    addCommit("last commit of a generation", last);
    for (const Kind& each : kinds) EXPECT_TRUE(each.isTaken()) << each.what;
  }

  static Commit commitOf(std::int64_t number) {
    Commit commit;
    commit.link.number = number;
    commit.link.previous = std::string(kHashBytes, 'p');
    commit.link.pushId = kWriter;
    commit.writer = kWriter;
    return commit;
  }

  void addCommit(const char* what, const Commit& commit) {
    Link link = commit.link;
    const std::string bytes = objects.sealCommit(commit, link);
    const std::string name = nameOf(link);
    place.objects[sealer.folder() + "/c/" + name].bytes = bytes;
    kinds.push_back({what, sealer.folder() + "/c/" + name,
                     [this, name] { return reader().find({name}).front().state == Found::State::good; }});
  }

  SegmentRef addSegment(const char* what, const std::string& contents) {
    NamedBytes object;
    const SegmentRef segment = objects.sealSegment(contents, object);
    place.objects[object.name].bytes = object.bytes;
    kinds.push_back({what, object.name, [this, segment] { return isSegmentTaken(segment); }});
    return segment;
  }

  bool isSegmentTaken(const SegmentRef& segment) {
    bool isTaken = false, isNamed = false;
    try {
      reader().readSegments({segment}, [&](const std::string&) { isTaken = true; });
    } catch (const MissingObject& missing) {
      isNamed = true;
      EXPECT_THAT(missing.reason(), HasSubstr(segment.name));
    }
    EXPECT_NE(isTaken, isNamed);
    return isTaken;
  }

  // Who knows nothing of any object yet.
  ChainObjects reader() { return {*connection, sealer}; }

  bool isTaken(const Kind& kind, std::string bytes) {
    std::swap(place.objects.at(kind.name).bytes, bytes);
    const bool isTaken = kind.isTaken();
    std::swap(place.objects.at(kind.name).bytes, bytes);
    return isTaken;
  }

  StrictPlatform platform;
  MemoryPlace place;
  std::unique_ptr<Place> connection = place.connect();
  Sealer sealer{keyOfLetters('k'), kOurAccount, 1};
  ChainObjects objects{*connection, sealer};
  std::vector<Kind> kinds;
};

TEST_F(ChainObjectsTest, OfEachKindEveryByteAndEveryLengthCounts) {
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.what);
    const std::string bytes = place.objects.at(kind.name).bytes;
    for (std::size_t at = 0; at < bytes.size(); ++at) {
      std::string flipped = bytes;
      flipped[at] = static_cast<char>(flipped[at] ^ (1 << at % 8));
      EXPECT_FALSE(isTaken(kind, flipped)) << "byte " << at;
      EXPECT_FALSE(isTaken(kind, bytes.substr(0, at))) << at << " bytes";
    }
    EXPECT_FALSE(isTaken(kind, bytes + '\0'));
    EXPECT_FALSE(isTaken(kind, bytes + std::string(1024, '\0')));
    EXPECT_FALSE(isTaken(kind, bytes + bytes));
  }
}

TEST_F(ChainObjectsTest, NoneStandsInForAnother) {
  const struct {
    const char* what;
    Sealer sealer;
  } others[] = {
      {"of another account", {keyOfLetters('k'), kOtherAccount, 1}},
      {"of another generation", {keyOfLetters('k'), kOurAccount, 2}},
      {"under another key", {keyOfLetters('x'), kOurAccount, 1}},
  };
  for (const Kind& kind : kinds) {
    SCOPED_TRACE(kind.what);
    const std::string bytes = place.objects.at(kind.name).bytes;
    for (const Kind& other : kinds) {
      if (other.name != kind.name) {
        EXPECT_FALSE(isTaken(kind, place.objects.at(other.name).bytes)) << other.what;
      }
    }
    const std::string contents = sealer.open(kind.name, bytes, kMostContents).value();
    for (const auto& other : others)
      EXPECT_FALSE(isTaken(kind, other.sealer.seal(kind.name, contents))) << other.what;
  }
}

TEST_F(ChainObjectsTest, ACheckpointIsWholeWhereNothingOfItIsMissingInTheListing) {
  const auto named = [this](const char* what) {
    return std::find_if(kinds.begin(), kinds.end(),
                        [&](const Kind& each) { return each.what == std::string(what); })
        ->name;
  };
  const std::string checkpoint = named("checkpoint"), name = checkpoint.substr(checkpoint.rfind('/') + 1);
  const auto isWhole = [&] {
    ChainObjects looking = reader();
    EXPECT_TRUE(looking.find({name}).front().link.isWhole) << "nothing is listed yet";
    looking.listCommits();
    return looking.find({name}).front().link.isWhole;
  };
  EXPECT_TRUE(isWhole());
  for (const char* part : {"history", "records of a snapshot"}) {
    const MemoryPlace::Objects all = place.objects;
    place.objects.erase(named(part));
    EXPECT_FALSE(isWhole()) << part;
    place.objects = all;
  }
}

TEST_F(ChainObjectsTest, NothingIsTakenOfACommitThatIsLongerThanAny) {
  const std::string name = nameOf(commitOf(1).link);
  std::vector<std::string> hashes;
  for (const char letter : {'x', 'y'}) {
    place.objects[sealer.folder() + "/c/" + name].bytes = std::string(kMostContents + (1 << 20), letter);
    const Found found = reader().find({name}).front();
    EXPECT_EQ(found.state, Found::State::damaged);
    hashes.push_back(found.hash);
  }
  EXPECT_EQ(hashes[0], hashes[1]);
}

TEST_F(ChainObjectsTest, ASegmentIsTheOneThatWasNamedAndNoOtherSealedUnderItsName) {
  const Kind& kind = kinds.front();
  EXPECT_FALSE(isTaken(kind, sealer.seal(kind.name, writeSegment({namedRecord("another")}))));
  // With the right hash, and sealed under another name.
  const std::string& bytes = place.objects.at(kinds[1].name).bytes;
  place.objects.at(kind.name).bytes = bytes;
  EXPECT_FALSE(isSegmentTaken({kind.name.substr(kind.name.rfind('/') + 1), sealer.hash(bytes)}));
}

TEST_F(ChainObjectsTest, WhatIsNoCommitOfTheSlotThatItsNameSaysIsDamaged) {
  Commit elsewhere = commitOf(1);
  elsewhere.link.previous = std::string(kHashBytes, 'q');
  for (const std::string& contents : {writeCommit(commitOf(2)), writeCommit(elsewhere),
                                      writeSegment({namedRecord("one")}), std::string()}) {
    const std::string name = nameOf(commitOf(1).link);
    const std::string object = sealer.folder() + "/c/" + name;
    place.objects[object].bytes = sealer.seal(object, contents);
    EXPECT_EQ(reader().find({name}).front().state, Found::State::damaged);
  }
}

}  // namespace
}  // namespace corvane::pelto::chain
