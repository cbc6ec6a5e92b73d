#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>

#include <algorithm>
#include <barrier>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceProbe.h"
#include "CorvaneSyncClient/platform/system/files/Timespec.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/kit/TestSize.h"
#include "tests/pelto/place/PlaceGround.h"

// What every place keeps, at every real server that there is for tests. Each test has folders of its own.

namespace corvane::pelto {
namespace {

constexpr double kTime = 300;  // seconds
constexpr std::size_t kMost = 16 << 20;
constexpr int kRacers = 8;

class PlaceConformanceTest : public testing::TestWithParam<std::string> {
 protected:
  PlaceConformanceTest() : place(newPlace()) {
    static int count = 0;
    folder = "t" + std::to_string(::time(nullptr)) + "-" + std::to_string(++count);
  }

  static std::unique_ptr<Place> newPlace() { return groundOf(GetParam()).place(after(kTime)); }

  std::string name(const std::string& last) const { return folder + "/c/" + last; }

  GetAnswer get(const std::string& object, Writing writing, const std::string& tag = {},
                std::size_t most = kMost) {
    return place->get({GetRequest{object, writing, tag, most}}).front();
  }
  std::string bytesOf(const std::string& object, Writing writing = Writing::contested) {
    const GetAnswer answer = get(object, writing);
    return answer.state == GetAnswer::State::present ? answer.bytes : "(absent)";
  }
  std::set<std::string> namesIn(const std::string& listed) {
    std::set<std::string> names;
    for (const PlaceObject& object : place->list(listed)) names.insert(object.name);
    return names;
  }

  FakePlatform platform;
  std::unique_ptr<Place> place;
  std::string folder;
};

std::string randomBytes(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::string bytes(count, '\0');
  for (std::size_t at = 0; at < count; at += sizeof(std::uint32_t)) {
    const auto word = static_cast<std::uint32_t>(random());
    std::memcpy(&bytes[at], &word, std::min(sizeof word, count - at));
  }
  return bytes;
}

TEST_P(PlaceConformanceTest, AnObjectIsMadeOnceAndNeverReplaced) {
  EXPECT_EQ(place->putNew(name("1"), "first"), Made::made);
  EXPECT_EQ(place->putNew(name("1"), "second"), Made::present);
  EXPECT_EQ(newPlace()->putNew(name("1"), "third"), Made::present);
  EXPECT_EQ(bytesOf(name("1")), "first");
}

// CORVANE_RACES gives another number of rounds.
TEST_P(PlaceConformanceTest, OfEightRacersForANameOneAloneIsToldThatItMadeIt) {
  const char* const asked = std::getenv("CORVANE_RACES");
  const int rounds = asked ? std::atoi(asked) : sized(20, 5);
  ASSERT_EQ(place->putNew(name("before"), "-"), Made::made);
  std::barrier together(kRacers);
  std::vector<std::vector<Made>> told(rounds, std::vector<Made>(kRacers));
  std::vector<std::thread> racers;
  for (int racer = 0; racer < kRacers; ++racer) {
    racers.emplace_back([&, racer] {
      const std::unique_ptr<Place> own = newPlace();
      for (int round = 0; round < rounds; ++round) {
        together.arrive_and_wait();
        told[round][racer] = own->putNew(name(std::to_string(round)), "by " + std::to_string(racer));
      }
    });
  }
  for (std::thread& racer : racers) racer.join();
  int uncertain = 0;
  for (int round = 0; round < rounds; ++round) {
    const auto winner = std::find(told[round].begin(), told[round].end(), Made::made);
    uncertain += static_cast<int>(std::count(told[round].begin(), told[round].end(), Made::unknown));
    const std::string bytes = bytesOf(name(std::to_string(round)));
    EXPECT_THAT(bytes, testing::StartsWith("by "));
    EXPECT_LE(std::count(told[round].begin(), told[round].end(), Made::made), 1);
    if (winner != told[round].end()) {
      EXPECT_EQ(bytes, "by " + std::to_string(winner - told[round].begin()));
    }
  }
  RecordProperty("unknown", uncertain);
  EXPECT_LT(uncertain, rounds * kRacers / 4);
}

TEST_P(PlaceConformanceTest, WhatIsNotThereIsAbsent) {
  EXPECT_EQ(get(name("1"), Writing::contested).state, GetAnswer::State::absent);
  EXPECT_EQ(get(name("1"), Writing::alone).state, GetAnswer::State::absent);
  EXPECT_TRUE(place->list(folder + "/c").empty());
  ASSERT_EQ(place->putNew(name("2"), "x"), Made::made);
  EXPECT_EQ(get(name("1"), Writing::contested).state, GetAnswer::State::absent);
  EXPECT_EQ(get(name("1"), Writing::alone).state, GetAnswer::State::absent);
}

TEST_P(PlaceConformanceTest, BytesComeBackAsTheyWere) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  const std::string contents[] = {"", "x", all, "\r\n\r\n", randomBytes(300'001, 1)};
  int count = 0;
  for (const std::string& bytes : contents) {
    const std::string last = std::to_string(++count);
    ASSERT_EQ(place->putNew(name(last), bytes), Made::made);
    EXPECT_TRUE(bytesOf(name(last)) == bytes);
    place->put({{folder + "/s/" + last, bytes}});
    EXPECT_TRUE(bytesOf(folder + "/s/" + last, Writing::alone) == bytes);
  }
}

TEST_P(PlaceConformanceTest, LargeObjectsComeBackWhole) {
  const std::string bytes = randomBytes(9 << 20, 2);
  place->put({{folder + "/s/large", bytes}});
  EXPECT_TRUE(bytesOf(folder + "/s/large", Writing::alone) == bytes);
}

TEST_P(PlaceConformanceTest, AnObjectThatTheReaderHasIsNotSentAgain) {
  ASSERT_EQ(place->putNew(name("1"), "contents"), Made::made);
  place->put({{folder + "/s/1", "contents"}});
  for (const auto& [object, writing] :
       {std::pair(name("1"), Writing::contested), std::pair(folder + "/s/1", Writing::alone)}) {
    const GetAnswer first = get(object, writing);
    ASSERT_EQ(first.state, GetAnswer::State::present);
    ASSERT_NE(first.tag, "");
    const GetAnswer second = get(object, writing, first.tag);
    EXPECT_EQ(second.state, GetAnswer::State::unchanged);
    EXPECT_EQ(second.bytes, "");
    EXPECT_EQ(get(object, writing, "\"another\"").bytes, "contents");
  }
}

TEST_P(PlaceConformanceTest, AnObjectLongerThanAskedForIsSaidToBeSo) {
  ASSERT_EQ(place->putNew(name("1"), "12345"), Made::made);
  EXPECT_EQ(get(name("1"), Writing::contested, {}, 5).bytes, "12345");
  const GetAnswer answer = get(name("1"), Writing::contested, {}, 4);
  EXPECT_EQ(answer.state, GetAnswer::State::tooLong);
  EXPECT_EQ(answer.bytes, "");
  EXPECT_EQ(get(name("1"), Writing::contested, {}, 5).bytes, "12345");
}

TEST_P(PlaceConformanceTest, ManyAreWrittenAndReadAtOnceInTheirOrder) {
  std::vector<NamedBytes> objects;
  std::vector<GetRequest> requests;
  for (int i = 0; i < 30; ++i) {
    objects.push_back({folder + "/s/" + std::to_string(i), randomBytes(5000 + 100 * i, i)});
    requests.push_back({objects.back().name, Writing::alone, {}, kMost});
    requests.push_back({folder + "/s/absent-" + std::to_string(i), Writing::alone, {}, kMost});
  }
  place->put(objects);
  place->put(objects);  // once more, as after an answer that was lost
  const std::vector<GetAnswer> answers = place->get(requests);
  ASSERT_EQ(answers.size(), requests.size());
  for (std::size_t i = 0; i < objects.size(); ++i) {
    EXPECT_TRUE(answers[2 * i].bytes == objects[i].bytes);
    EXPECT_EQ(answers[2 * i + 1].state, GetAnswer::State::absent);
  }
}

volatile std::sig_atomic_t alarms = 0;

TEST_P(PlaceConformanceTest, SignalsInterruptNothing) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { alarms = alarms + 1; };
  ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
  const itimerval often{{0, 500}, {0, 500}}, never{};
  ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
  std::vector<NamedBytes> objects;
  std::vector<GetRequest> requests;
  for (int i = 0; i < sized(60, 20); ++i) {
    objects.push_back({folder + "/s/" + std::to_string(i), randomBytes(200'000, i)});
    requests.push_back({objects.back().name, Writing::alone, {}, kMost});
  }
  place->put(objects);
  EXPECT_EQ(place->putNew(name("1"), "first"), Made::made);
  const std::vector<GetAnswer> answers = place->get(requests);
  const std::size_t found = namesIn(folder + "/s").size();
  ASSERT_EQ(::setitimer(ITIMER_REAL, &never, nullptr), 0);
  ASSERT_EQ(::sigaction(SIGALRM, &before, nullptr), 0);
  EXPECT_EQ(found, objects.size());
  for (std::size_t i = 0; i < objects.size(); ++i) EXPECT_TRUE(answers[i].bytes == objects[i].bytes);
  EXPECT_GT(alarms, 10);
}

TEST_P(PlaceConformanceTest, AListingHoldsAllOfThreeThousandObjects) {
  constexpr int kCount = sized(3000, 300);
  std::vector<NamedBytes> objects;
  std::set<std::string> expected;
  for (int i = 0; i < kCount; ++i) {
    objects.push_back({folder + "/s/" + std::to_string(i), "some bytes"});
    expected.insert(objects.back().name);
  }
  place->put(objects);
  place->put({{folder + "/s-other/1", "-"}});
  const std::vector<PlaceObject> listed = place->list(folder + "/s");
  std::set<std::string> names;
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  for (const PlaceObject& object : listed) {
    names.insert(object.name);
    EXPECT_EQ(object.bytes, 10U);
    EXPECT_LT(std::abs(object.date.seconds - dateOf(now).seconds), 3600);  // the server's clock is ours
  }
  EXPECT_EQ(listed.size(), std::size_t{kCount});
  EXPECT_EQ(names, expected);
}

TEST_P(PlaceConformanceTest, AListingShowsWhatLiesInTheFolderAlone) {
  ASSERT_EQ(place->putNew(name("2-ab"), "2"), Made::made);
  ASSERT_EQ(place->putNew(name("10-ab"), "10"), Made::made);
  place->put({{folder + "/s/1", "s"}});
  EXPECT_EQ(namesIn(folder + "/c"), (std::set<std::string>{name("10-ab"), name("2-ab")}));
  EXPECT_EQ(namesIn(folder + "/s"), (std::set<std::string>{folder + "/s/1"}));
  EXPECT_TRUE(namesIn(folder + "/x").empty());
}

TEST_P(PlaceConformanceTest, WhatIsRemovedIsGoneAndMayBeMadeAgain) {
  std::vector<std::string> names{name("1"), name("absent"), folder + "/s/1", folder + "/none/1"};
  ASSERT_EQ(place->putNew(name("1"), "1"), Made::made);
  ASSERT_EQ(place->putNew(name("2"), "2"), Made::made);
  place->put({{folder + "/s/1", "s"}});
  place->remove(names);
  place->remove(names);
  EXPECT_EQ(bytesOf(name("1")), "(absent)");
  EXPECT_EQ(bytesOf(folder + "/s/1", Writing::alone), "(absent)");
  EXPECT_EQ(namesIn(folder + "/c"), std::set<std::string>{name("2")});
  EXPECT_EQ(place->putNew(name("1"), "again"), Made::made);
  EXPECT_EQ(bytesOf(name("1")), "again");
}

TEST_P(PlaceConformanceTest, NamesOfTheLongestFormAreTaken) {
  const std::string longest(100, 'a'), object = folder + "/" + longest + "/" + longest;
  EXPECT_EQ(place->putNew(object, "x"), Made::made);
  EXPECT_EQ(bytesOf(object), "x");
  EXPECT_EQ(namesIn(folder + "/" + longest), std::set<std::string>{object});
}

TEST_P(PlaceConformanceTest, OtherNamesAreRefused) {
  for (const std::string other : {"", "x", "../x/y", "t/..", "t/A", "/t/x", "t//x", "t/x.y", "t/%2e%2e"}) {
    SCOPED_TRACE(other);
    EXPECT_THROW(place->putNew(other, "x"), PlatformException);
    EXPECT_THROW(place->put({{other, "x"}}), PlatformException);
    EXPECT_THROW(get(other, Writing::contested), PlatformException);
    EXPECT_THROW(place->remove({other}), PlatformException);
  }
  EXPECT_THROW(place->list(".."), PlatformException);
}

TEST_P(PlaceConformanceTest, NothingIsDoneWithoutTime) {
  ASSERT_EQ(place->putNew(name("1"), "1"), Made::made);
  place = groundOf(GetParam()).place(after(-1));
  EXPECT_THROW(place->putNew(name("2"), "2"), PlaceException);
  EXPECT_THROW(place->put({{name("3"), "3"}}), PlaceException);
  EXPECT_THROW(get(name("1"), Writing::contested), PlaceException);
  EXPECT_THROW(place->list(folder + "/c"), PlaceException);
  EXPECT_THROW(place->remove({name("1")}), PlaceException);
  place = newPlace();
  EXPECT_EQ(namesIn(folder + "/c"), std::set<std::string>{name("1")});
}

// CORVANE_RACES gives another number of rounds.
TEST_P(PlaceConformanceTest, TheProbeFindsItFitAndLeavesNothing) {
  const char* const asked = std::getenv("CORVANE_RACES");
  const PlaceFindings findings =
      probePlace([] { return groundOf(GetParam()).place(after(kTime), kProbePause); },
                 asked ? std::atoi(asked) : kProbeRounds);
  EXPECT_NE(findings.software, "");
  RecordProperty("software", findings.software);
  std::cout << findings.software << ": " << findings.rounds << " rounds with one winner\n";
  EXPECT_TRUE(namesIn("probe").empty());
}

INSTANTIATE_TEST_SUITE_P(Grounds, PlaceConformanceTest, testing::ValuesIn(groundNames()),
                         [](const auto& ground) { return ground.param; });

}  // namespace
}  // namespace corvane::pelto
