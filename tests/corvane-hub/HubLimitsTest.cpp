#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tests/corvane-hub/HubServerTest.h"

namespace corvane {

namespace {

using HubLimits = HubServerTest;

/// The most memory that a process ever had, in KiB.
long peakMemory(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string word; status >> word;) {
    long kilobytes = 0;
    if (word == "VmHWM:" && status >> kilobytes) return kilobytes;
  }
  throw std::runtime_error("no VmHWM");
}

TEST_F(HubLimits, AFullAccountIsSaidToBeFullBeforeTheBodyComes) {
  accountCommand(directory.path(), {"quota", "ada", "10 KiB"});
  client.send(client.request("PUT", "/v1/o/f/1", "Content-Length: 20000\r\n"));
  EXPECT_EQ(client.receive().status, 507);
}

TEST_F(HubLimits, AFullAccountTakesNothingMoreUntilThereIsRoom) {
  accountCommand(directory.path(), {"quota", "ada", "10 KiB"});
  ASSERT_EQ(client.put("/v1/o/f/1", std::string(4000, 'x')).status, 201);  // and the folder counts for 1 KiB
  ASSERT_EQ(client.put("/v1/o/f/2", std::string(3000, 'x')).status, 201);
  const HttpAnswer full = client.put("/v1/o/f/3", std::string(3000, 'x'));
  EXPECT_EQ(full.status, 507);
  EXPECT_EQ(full.body, "the account is full: it may hold 10 KiB\n");
  HubClient again(hub.port(), token);
  EXPECT_EQ(again.get("/v1/o/f/3").status, 404);
  EXPECT_EQ(again.remove("/v1/o/f/1").status, 204);
  EXPECT_EQ(again.put("/v1/o/f/3", std::string(3000, 'x')).status, 201);
  EXPECT_EQ(HubClient(hub.port(), token).put("/v1/o/f/4", std::string(3000, 'x')).status, 507);
  accountCommand(directory.path(), {"quota", "ada", "1 MiB"});
  EXPECT_EQ(HubClient(hub.port(), token).put("/v1/o/f/4", std::string(3000, 'x')).status, 201);
}

TEST_F(HubLimits, TheLastByteOfTheQuotaIsThereToBeUsed) {
  accountCommand(directory.path(), {"quota", "ada", "10 KiB"});
  // The folder counts for 1 KiB.
  EXPECT_EQ(client.put("/v1/o/f/1", std::string(9 * 1024 + 1, 'x')).status, 507);
  EXPECT_EQ(HubClient(hub.port(), token).put("/v1/o/f/1", std::string(9 * 1024, 'x')).status, 201);
}

TEST_F(HubLimits, UploadsAtTheSameTimeDoNotPassTheQuotaTogether) {
  accountCommand(directory.path(), {"quota", "ada", "10 KiB"});
  std::vector<std::unique_ptr<HubClient>> writers;
  for (int i = 0; i < 8; ++i) {
    writers.push_back(std::make_unique<HubClient>(hub.port(), token));
    HubClient& writer = *writers.back();
    writer.send(writer.request("PUT", "/v1/o/f/" + std::to_string(i),
                               "Expect: 100-continue\r\nContent-Length: 4000\r\n"));
    ASSERT_EQ(writer.receive().status, 100);
  }
  int made = 0;
  for (const auto& writer : writers) {
    writer->send(std::string(4000, 'x'));
    const int status = writer->receive().status;
    EXPECT_TRUE(status == 201 || status == 507) << status;
    if (status == 201) ++made;
  }
  EXPECT_EQ(made, 2);
}

TEST_F(HubLimits, EmptyObjectsFillAnAccountToo) {
  accountCommand(directory.path(), {"quota", "ada", "100 KiB"});
  int made = 0;
  while (made < 200 && client.put("/v1/o/f/" + std::to_string(made), "").status == 201) ++made;
  EXPECT_LT(made, 101);
}

TEST_F(HubLimits, AnObjectHasSixtyFourMebibytesAtMost) {
  client.send(
      client.request("PUT", "/v1/o/f/1", "Content-Length: " + std::to_string((64 << 20) + 1) + "\r\n"));
  EXPECT_EQ(client.receive().status, 413);
  HubClient largest(hub.port(), token);
  largest.send(largest.request(
      "PUT", "/v1/o/f/1", "Expect: 100-continue\r\nContent-Length: " + std::to_string(64 << 20) + "\r\n"));
  EXPECT_EQ(largest.receive().status, 100);
  HubClient endless(hub.port(), token);
  endless.send(endless.request("PUT", "/v1/o/f/1", "Content-Length: 18446744073709551615\r\n"));
  EXPECT_EQ(endless.receive().status, 413);
}

TEST_F(HubLimits, ARequestsHeadHasEightKibibytesAtMost) {
  const auto headOf = [this](std::size_t size) {
    const std::size_t others = client.request("GET", "/v1/o/f/1", "X: \r\n").size();
    return client.request("GET", "/v1/o/f/1", "X: " + std::string(size - others, 'x') + "\r\n");
  };
  // In which pieces it comes does not matter.
  for (const std::size_t last : {0, 1, 3, 4, 5}) {
    SCOPED_TRACE(last);
    for (const auto& [size, status] : {std::pair{8192, 404}, std::pair{8193, 431}}) {
      const std::string head = headOf(static_cast<std::size_t>(size));
      HubClient fresh(hub.port(), token);
      fresh.send(head.substr(0, head.size() - last));
      client.get("/v1/o/f/1");  // the server has taken in the first piece by then
      fresh.send(head.substr(head.size() - last));
      EXPECT_EQ(fresh.receive().status, status);
    }
  }
}

TEST_F(HubLimits, WhoSendsOnAndOnWhileHeWaitsIsNotHeard) {
  HubClient waiting(hub.port(), token);
  waiting.send(waiting.request("GET", "/v1/o/f/1?wait=300"));
  client.get("/v1/o/f/1");
  const long before = peakMemory(hub.process());
  std::thread sending([&] {
    const std::string much(1 << 20, 'x');
    while (waiting.send(much)) {
    }
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_LT(peakMemory(hub.process()) - before, 16 * 1024);
  ASSERT_EQ(client.put("/v1/o/f/1", "first").status, 201);
  EXPECT_EQ(waiting.receive().body, "first");
  hub.kill();
  sending.join();
}

TEST_F(HubLimits, LargeObjectsTakeNoMemory) {
  const std::string large(48 << 20, 'x');
  client.get("/v1/o/f/1");
  const long before = peakMemory(hub.process());
  ASSERT_EQ(client.put("/v1/o/f/1", large).status, 201);
  ASSERT_EQ(client.get("/v1/o/f/1").body, large);
  EXPECT_LT(peakMemory(hub.process()) - before, 4096);
}

TEST_F(HubLimits, AMillionNamesTakeNoMemoryAndKeepNobodyWaiting) {
  ASSERT_EQ(client.put("/v1/o/f/one", "x").status, 201);
  const std::string folder = directory / "data/accounts/ada/objects/f/";
  // Links are made faster than files, but a file has 65,000 of them at most.
  std::string file = "one";
  const FileDescriptor at(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int i = 0; i < 1'000'000; ++i) {
    const std::string name = std::to_string(i) + "-abcdef";
    if (i % 60'000 == 59'999) {
      std::ofstream(folder + name) << "x";
      file = name;
    } else if (linkat(at.number(), file.c_str(), at.number(), name.c_str(), 0) != 0) {
      FAIL() << name << ": " << lastSystemError().message();
    }
  }
  const long before = peakMemory(hub.process());
  HubClient slow(hub.port(), token);
  slow.send(slow.request("GET", "/v1/list/f"));  // and does not read it yet
  // By a new connection: making the links may take longer than the server keeps an idle one.
  EXPECT_EQ(HubClient(hub.port(), token).get("/v1/o/f/one").body, "x");
  const std::string listing = slow.receive().body;
  EXPECT_EQ(std::count(listing.begin(), listing.end(), '\n'), 1'000'002);
  EXPECT_LT(peakMemory(hub.process()) - before, 4096);
}

TEST_F(HubLimits, AComputerThatAsksTooOftenIsToldToWait) {
  std::string requests;
  for (int i = 0; i < 3000; ++i) requests += client.request("GET", "/v1/o/f/1");
  const std::string other = accountCommand(directory.path(), {"token", "ada", "phone"});
  client.send(requests);
  int refused = 0;
  for (int i = 0; i < 3000; ++i) {
    const HttpAnswer answer = client.receive();
    if (answer.status != 429) continue;
    ++refused;
    EXPECT_EQ(answer.header("retry-after"), "2");
  }
  EXPECT_GT(refused, 0);
  // The account's other computers have all of theirs.
  HubClient phone(hub.port(), other);
  std::string allowed;
  for (int i = 0; i < 1000; ++i) allowed += phone.request("GET", "/v1/o/f/1");
  phone.send(allowed);
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(phone.receive().status, 404) << i;
}

TEST_F(HubLimits, AnAccountHasAHundredConnectionsAtMost) {
  std::vector<std::unique_ptr<HubClient>> clients;
  for (int i = 0; i < 100; ++i) {
    clients.push_back(std::make_unique<HubClient>(hub.port(), token));
    ASSERT_EQ(clients.back()->get("/v1/o/f/1").status, 404);
  }
  const HttpAnswer tooMany = HubClient(hub.port(), token).get("/v1/o/f/1");
  EXPECT_EQ(tooMany.status, 429);
  EXPECT_EQ(tooMany.header("retry-after"), "10");
  EXPECT_EQ(HubClient(hub.port(), accountCommand(directory.path(), {"add", "bob"})).get("/v1/o/f/1").status,
            404);
  clients.pop_back();
  // The server hears of it in its own time.
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  int status = 429;
  while (status == 429 && std::chrono::steady_clock::now() < end)
    status = HubClient(hub.port(), token).get("/v1/o/f/1").status;
  EXPECT_EQ(status, 404);
}

// A proxy may have clients of several accounts share its connections.
TEST_F(HubLimits, AConnectionCountsForTheAccountThatItServedLast) {
  const std::string other = accountCommand(directory.path(), {"add", "bob"});
  std::vector<std::unique_ptr<HubClient>> clients;
  for (int i = 0; i < 100; ++i) {
    clients.push_back(std::make_unique<HubClient>(hub.port(), token));
    ASSERT_EQ(clients.back()->get("/v1/o/f/1").status, 404);
    clients.back()->send("GET /v1/o/f/1 HTTP/1.1\r\nHost: x\r\nAuthorization: Bearer " + other + "\r\n\r\n");
    ASSERT_EQ(clients.back()->receive().status, 404);
  }
  EXPECT_EQ(HubClient(hub.port(), token).get("/v1/o/f/1").status, 404);
  EXPECT_EQ(HubClient(hub.port(), other).get("/v1/o/f/1").status, 429);
}

TEST_F(HubLimits, MoreClientsThanTheSystemHasRoomForAreTurnedAwayAndTheOthersServed) {
  const HubProcess small(directory.path(), {}, {"prlimit", "--nofile=64"});
  std::vector<std::unique_ptr<HubClient>> clients;
  for (int i = 0; i < 80; ++i) clients.push_back(std::make_unique<HubClient>(small.port(), token));
  EXPECT_TRUE(clients.back()->isClosed());
  EXPECT_EQ(clients.front()->put("/v1/o/f/1", "x").status, 201);
  const std::string log = small.log(), turnsAway = "turns clients away";
  EXPECT_NE(log.find(turnsAway), std::string::npos) << log;
  EXPECT_EQ(log.find(turnsAway), log.rfind(turnsAway)) << "said once";
}

TEST_F(HubLimits, WhatRunsIsFinishedWhenTheServerEnds) {
  HubClient waiting(hub.port(), token);
  waiting.send(waiting.request("GET", "/v1/o/f/1?wait=300"));
  HubClient writing(hub.port(), token);
  writing.send(writing.request("PUT", "/v1/o/f/2", "Expect: 100-continue\r\nContent-Length: 6\r\n"));
  ASSERT_EQ(writing.receive().status, 100);
  ASSERT_EQ(client.get("/v1/o/f/1").status, 404);
  hub.signal(SIGTERM);
  EXPECT_EQ(waiting.receive().status, 503);
  EXPECT_TRUE(client.isClosed());
  EXPECT_THROW(HubClient(hub.port(), token), ConnectionEnded);
  writing.send("second");
  const HttpAnswer answer = writing.receive();
  EXPECT_EQ(answer.status, 201);
  EXPECT_EQ(answer.header("connection"), "close");
  writing.endSending();
  EXPECT_TRUE(writing.isClosed());
  waiting.endSending();
  EXPECT_EQ(hub.awaitEnd(), 0);
}

}  // namespace

}  // namespace corvane
