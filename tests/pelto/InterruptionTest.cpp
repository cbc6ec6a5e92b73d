#include <signal.h>
#include <sys/time.h>

#include <barrier>
#include <thread>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "tests/pelto/CuttingProxy.h"
#include "tests/pelto/HubFixture.h"

// Connections cut at every message, servers killed, computers that give at the same moment: an account is
// always in the state before a push or in that after it, and the computer can tell which.

namespace corvane::pelto {
namespace {

using Moment = CuttingProxy::Moment;

class InterruptionTest : public HubTest {
 protected:
  InterruptionTest() { give({a, b}); }

  HubPush change() {
    HubRecord renamed = a;
    renamed.name = newUuidString();
    return {hub.remoteChanges({}).now, newUuidString(), {renamed, tombstone(bookmark("gone", {}))}};
  }
  // What a push through the proxy came to, against what the account then holds.
  void expectBeforeOrAfter(const HubPush& push, bool isTold) {
    PostgresHub direct(url, computer);
    const HubState now = direct.remoteChanges({}).now;
    if (direct.hasPush(push.id)) {
      EXPECT_EQ(now.pushId, push.id);
      EXPECT_EQ(now.revision, push.expected.revision + 1);
      EXPECT_EQ(held(), text({push.records[0], b}));
      a = push.records[0];
    } else {
      EXPECT_FALSE(isTold);
      EXPECT_EQ(now, push.expected);
      EXPECT_EQ(held(), text({a, b}));
    }
  }

  HubRecord a = bookmark("A", "http://a/");
  const HubRecord b = bookmark("B", "http://b/");
  CuttingProxy proxy{server.port()};
};

TEST_F(InterruptionTest, ReadingCutOffAtAnyMessageRaisesAndTheNextOneSucceeds) {
  const HubState now = hub.remoteChanges({}).now;
  for (const Moment moment : {Moment::before, Moment::after}) {
    int message = 0;
    bool isDone = false;
    while (!isDone) {
      SCOPED_TRACE(++message);
      PostgresHub cut(proxy.through(url), computer);
      proxy.cutAt(message, moment);
      const std::string failure = failureOf([&] { cut.remoteChanges({}); });
      isDone = proxy.messages() < message;
      EXPECT_EQ(failure.empty(), isDone) << failure;
      proxy.cutAt(0);
      const RemoteChanges remote = cut.remoteChanges({});
      EXPECT_EQ(remote.now, now);
      EXPECT_EQ(text(remote.records), text({a, b}));
    }
    EXPECT_GT(message, 20) << "the connection, the version, the transaction, the state, the records";
  }
}

TEST_F(InterruptionTest, APushCutOffAtAnyMessageIsMadeOrNotAndTheComputerLearnsWhich) {
  for (const Moment moment : {Moment::before, Moment::after}) {
    int message = 0;
    bool isDone = false;
    while (!isDone) {
      SCOPED_TRACE(++message);
      const HubPush push = change();
      PostgresHub cut(proxy.through(url), computer);
      proxy.cutAt(message, moment);
      bool isTold = false;
      const std::string failure = failureOf([&] { isTold = static_cast<bool>(cut.push(push)); });
      isDone = proxy.messages() < message;
      EXPECT_EQ(failure.empty(), isDone) << failure;
      EXPECT_EQ(isTold, isDone);
      proxy.cutAt(0);
      expectBeforeOrAfter(push, isTold);
      EXPECT_EQ(cut.hasPush(push.id), PostgresHub(url, computer).hasPush(push.id));
    }
    EXPECT_GT(message, 20);
  }
}

TEST_F(InterruptionTest, AServerKilledDuringAPushKeepsNothingOfIt) {
  int commit = 0;  // the number of the message that commits
  {
    const HubPush push = change();
    PostgresHub counted(proxy.through(url), computer);
    ASSERT_TRUE(counted.push(push));
    commit = proxy.messages();
    expectBeforeOrAfter(push, true);
  }
  const std::pair<int, Moment> moments[] = {
      {commit - 1, Moment::after}, {commit, Moment::before}, {commit, Moment::after}};
  for (const auto& [message, moment] : moments) {
    SCOPED_TRACE(message);
    const HubPush push = change();
    PostgresHub cut(proxy.through(url), computer);
    proxy.cutAt(message, moment, [this] { server.kill(); });
    EXPECT_THAT(failureOf([&] { cut.push(push); }), testing::HasSubstr("cut off"));
    EXPECT_THAT(failureOf([&] { PostgresHub(url, computer).remoteChanges({}); }),
                testing::HasSubstr("it can't be reached: Connection refused"));
    server.start();
    proxy.cutAt(0);
    EXPECT_EQ(cut.hasPush(push.id), moment == Moment::after && message == commit);
    expectBeforeOrAfter(push, false);
    EXPECT_NE(failureOf([&] { hub.remoteChanges({}); }), "")
        << "its connection was that of the killed server";
    EXPECT_EQ(failureOf([&] { hub.remoteChanges({}); }), "");
  }
}

TEST_F(InterruptionTest, AServerMayRestartBetweenTwoCalls) {
  const HubState now = hub.remoteChanges({}).now;
  server.stop();
  EXPECT_THAT(failureOf([&] { hub.remoteChanges({}); }), testing::HasSubstr("the server cut it off"));
  server.start();
  EXPECT_EQ(hub.remoteChanges({}).now, now);
}

volatile sig_atomic_t alarms = 0;

TEST_F(InterruptionTest, SignalsInterruptNothing) {
  struct sigaction action {};
  struct sigaction oldAction {};
  action.sa_handler = [](int) { alarms = alarms + 1; };
  ASSERT_EQ(::sigaction(SIGALRM, &action, &oldAction), 0);
  const itimerval often{{0, 500}, {0, 500}}, never{};
  ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
  std::vector<HubRecord> records{a, b};
  for (int i = 0; i < 6000; ++i) records.push_back(bookmark("C", "http://c/"));
  for (int i = 0; i < 3; ++i) {
    PostgresHub interrupted(url, computer);
    give(interrupted, records);
    EXPECT_EQ(text(interrupted.remoteChanges({}).records), text(records));
  }
  ASSERT_EQ(::setitimer(ITIMER_REAL, &never, nullptr), 0);
  ASSERT_EQ(::sigaction(SIGALRM, &oldAction, nullptr), 0);
  EXPECT_GT(alarms, 10);
}

// One computer of several that work at the same time. Texts are not shared between threads: each has its
// own.
struct Racer {
  explicit Racer(const std::string& url) : hub(url, newUuidString()) { hub.setEnabled(kHubDataClass, true); }
  PostgresHub hub;
  std::vector<std::string> given;
  int lost = 0;
};

TEST_F(InterruptionTest, ExactlyOneOfTwoCrossingPushesWins) {
  constexpr int kRounds = 200;
  Racer one(url), two(url);
  std::barrier<> together(2);
  std::vector<int> wins(kRounds, 0);
  std::mutex mutex;
  const auto race = [&](Racer& racer) {
    for (int round = 0; round < kRounds; ++round) {
      const HubRecord record = bookmark("raced", {});
      const HubState now = racer.hub.remoteChanges({}).now;
      together.arrive_and_wait();
      const auto isWon = static_cast<bool>(racer.hub.push({now, newUuidString(), {record}}));
      if (isWon) racer.given.push_back(record.id.toString());
      {
        const std::lock_guard lock(mutex);
        wins[static_cast<std::size_t>(round)] += isWon ? 1 : 0;
      }
      together.arrive_and_wait();
    }
  };
  std::thread other(race, std::ref(two));
  race(one);
  other.join();
  EXPECT_EQ(wins, std::vector<int>(kRounds, 1));
  EXPECT_GT(one.given.size(), 0u);
  EXPECT_GT(two.given.size(), 0u);
  EXPECT_EQ(hub.remoteChanges({}).now.revision, 1 + kRounds);
  EXPECT_EQ(hub.remoteChanges({}).records.size(), 2u + kRounds);
}

TEST_F(InterruptionTest, AnOvertakenComputerTriesAgainAndNothingIsLost) {
  constexpr int kPushes = 60;
  std::vector<std::unique_ptr<Racer>> racers;
  for (int i = 0; i < 4; ++i) racers.push_back(std::make_unique<Racer>(url));
  std::vector<std::thread> threads;
  for (const auto& racer : racers) {
    threads.emplace_back([&racer] {
      for (int i = 0; i < kPushes; ++i) {
        const HubRecord record = bookmark("raced", {});
        while (!racer->hub.push({racer->hub.remoteChanges({}).now, newUuidString(), {record}})) ++racer->lost;
        racer->given.push_back(record.id.toString());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(hub.remoteChanges({}).now.revision, 1 + 4 * kPushes);
  EXPECT_EQ(number("SELECT count(DISTINCT id) FROM corvane_hub.records WHERE account = $ AND NOT deleted"),
            2 + 4 * kPushes);
  EXPECT_EQ(hub.remoteChanges({}).room, 1'000'000 - 2 - 4 * kPushes);
  int lost = 0;
  for (const auto& racer : racers) lost += racer->lost;
  EXPECT_GT(lost, 0) << "they never met";
}

}  // namespace
}  // namespace corvane::pelto
