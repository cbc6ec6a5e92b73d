#include <algorithm>
#include <barrier>
#include <thread>
#include <vector>

#include "tests/corvane-hub/HubServerTest.h"

namespace corvane {

namespace {

constexpr int kRacers = 8;
constexpr int kRounds = 200;

struct RacerResult {
  int status = 0;
  std::string seen;
};

/// Each racer tries to make each of the rounds' objects at the same moment, and reads it afterwards.
std::vector<std::vector<RacerResult>> race(const std::vector<int>& ports,
                                           const std::vector<std::string>& tokens) {
  std::vector<std::vector<RacerResult>> results(kRounds, std::vector<RacerResult>(kRacers));
  std::barrier start(kRacers);
  std::vector<std::thread> racers;
  for (int racer = 0; racer < kRacers; ++racer) {
    racers.emplace_back([&, racer] {
      HubClient client(ports[static_cast<std::size_t>(racer) % ports.size()],
                       tokens[static_cast<std::size_t>(racer)]);
      for (int round = 0; round < kRounds; ++round) {
        // A new folder now and then, whose making is raced for, too.
        const std::string name = "/v1/o/f" + std::to_string(round / 20) + "/" + std::to_string(round);
        start.arrive_and_wait();
        RacerResult& result = results[static_cast<std::size_t>(round)][static_cast<std::size_t>(racer)];
        result.status = client.putNew(name, std::string(3000, static_cast<char>('a' + racer))).status;
        result.seen = client.get(name).body;
      }
    });
  }
  for (std::thread& racer : racers) racer.join();
  return results;
}

void expectOneWinner(const std::vector<RacerResult>& round) {
  int winners = 0;
  for (int racer = 0; racer < kRacers; ++racer) {
    const RacerResult& result = round[static_cast<std::size_t>(racer)];
    EXPECT_TRUE(result.status == 201 || result.status == 412) << result.status;
    EXPECT_EQ(result.seen, round[0].seen);
    if (result.status != 201) continue;
    ++winners;
    EXPECT_EQ(result.seen, std::string(3000, static_cast<char>('a' + racer)));
  }
  EXPECT_EQ(winners, 1);
}

class HubRace : public testing::Test {
 protected:
  HubRace() {
    tokens.push_back(accountCommand(directory.path(), {"add", "ada", "c0"}));
    for (int i = 1; i < kRacers; ++i) {
      tokens.push_back(accountCommand(directory.path(), {"token", "ada", "c" + std::to_string(i)}));
    }
  }

  TemporaryDirectory directory;
  std::vector<std::string> tokens;
};

TEST_F(HubRace, OneOfEightWritersMakesAnObject) {
  const HubProcess hub(directory.path());
  for (const auto& round : race({hub.port()}, tokens)) expectOneWinner(round);
}

TEST_F(HubRace, OneOfEightWritersAtTwoServersMakesAnObject) {
  const HubProcess first(directory.path());
  const HubProcess second(directory.path());
  for (const auto& round : race({first.port(), second.port()}, tokens)) expectOneWinner(round);
}

class HubNotices : public HubRace, public testing::WithParamInterface<bool> {};

TEST_P(HubNotices, AWaitingClientHearsOfAnObjectMadeAtAnotherServer) {
  const HubProcess first(directory.path());
  const HubProcess second(directory.path());
  const bool folderExists = GetParam();
  if (folderExists) {
    ASSERT_EQ(HubClient(first.port(), tokens[2]).putNew("/v1/o/f/c/0", "x").status, 201);
  }
  HubClient waiting(first.port(), tokens[0]);
  waiting.send(waiting.request("GET", "/v1/o/f/c/1?wait=60"));
  HubClient other(first.port(), tokens[1]);
  ASSERT_EQ(other.get("/v1/o/f/c/1").status, 404);  // by then the first request has been read
  ASSERT_EQ(HubClient(second.port(), tokens[1]).putNew("/v1/o/f/c/2", "other").status, 201);
  ASSERT_EQ(HubClient(second.port(), tokens[1]).putNew("/v1/o/f/c/1", "first").status, 201);
  EXPECT_EQ(waiting.receive().body, "first");
}

INSTANTIATE_TEST_SUITE_P(All, HubNotices, testing::Bool(), [](const auto& row) {
  return std::string(row.param ? "InAFolder" : "InANewFolder");
});

}  // namespace

}  // namespace corvane
