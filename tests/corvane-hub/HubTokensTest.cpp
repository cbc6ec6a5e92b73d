#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/RegularFile.h"
#include "tests/corvane-hub/HubServerTest.h"
#include "tools/corvane-hub/ComputerToken.h"

namespace corvane {

namespace {

using HubTokens = HubServerTest;

/// Whether a thread of the process waits for a lock on a file.
bool isWaitingForALock(pid_t process) {
  std::ifstream locks("/proc/locks");
  const std::string number = ' ' + std::to_string(process) + ' ';
  for (std::string line; std::getline(locks, line);) {
    if (line.find("->") != std::string::npos && line.find(number) != std::string::npos) return true;
  }
  return false;
}

TEST_F(HubTokens, NobodyGetsInWithoutAGoodOne) {
  const std::string secret = token.substr(token.rfind('.') + 1);
  const std::string wrong = token.substr(0, token.size() - 1) + (token.back() == '0' ? '1' : '0');
  for (const std::string& bad :
       {std::string(), std::string("x"), wrong, "ada.phone." + secret, "bob.laptop." + secret,
        "ada.laptop." + secret + "0", "ada/../ada.laptop." + secret, "..laptop." + secret,
        "ada.laptop." + std::string(64, 'g'), token + ".x", std::string(4000, 'a')}) {
    const HttpAnswer answer = HubClient(hub.port(), bad).get("/v1/o/f/1");
    EXPECT_EQ(answer.status, 401) << bad;
    EXPECT_EQ(answer.header("www-authenticate"), "Bearer");
  }
  client.send("GET /v1/o/f/1 HTTP/1.1\r\nHost: x\r\nAuthorization: Basic " + token + "\r\n\r\n");
  EXPECT_EQ(client.receive().status, 401);
}

TEST(HubTokenHashes, AreComparedInAllTheirBytes) {
  const hubserver::SecretHash hash{};
  EXPECT_TRUE(hubserver::equalHashes(hash, hash));
  for (std::size_t i = 0; i < hash.size(); ++i) {
    hubserver::SecretHash other = hash;
    other[i] = 1;
    EXPECT_FALSE(hubserver::equalHashes(hash, other)) << i;
  }
}

TEST_F(HubTokens, AreNotKept) {
  const std::string secret = token.substr(token.rfind('.') + 1);
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory / "data")) {
    if (!entry.is_regular_file()) continue;
    std::string text;
    ASSERT_FALSE(readRegular(entry.path(), text, [](const struct stat&) { return std::error_code(); }));
    EXPECT_EQ(text.find(secret), std::string::npos) << entry.path();
  }
  HubClient(hub.port(), token).get("/v1/o/F/1");
  HubClient(hub.port(), token + "x").get("/v1/o/f/1");
  EXPECT_EQ(hub.log().find(secret), std::string::npos);
}

TEST_F(HubTokens, ARevokedOneEndsAtOnceWhatIsDoneInItsName) {
  HubClient waiting(hub.port(), token);
  waiting.send(waiting.request("GET", "/v1/o/f/1?wait=300"));
  HubClient writing(hub.port(), token);
  writing.send(writing.request("PUT", "/v1/o/f/2", "Expect: 100-continue\r\nContent-Length: 1000\r\n"));
  ASSERT_EQ(writing.receive().status, 100);
  const std::string other = accountCommand(directory.path(), {"token", "ada", "phone"});
  HubClient unaffected(hub.port(), other);
  unaffected.send(unaffected.request("GET", "/v1/o/f/3?wait=300"));
  ASSERT_EQ(client.get("/v1/o/f/1").status, 404);

  accountCommand(directory.path(), {"revoke", "ada", "laptop"});
  EXPECT_EQ(waiting.receive().status, 403);
  EXPECT_EQ(writing.receive().status, 403);
  EXPECT_EQ(client.get("/v1/o/f/1").status, 403);
  EXPECT_EQ(HubClient(hub.port(), other).put("/v1/o/f/3", "third").status, 201);
  EXPECT_EQ(unaffected.receive().body, "third");
}

TEST_F(HubTokens, ACommandMakesNothingAfterARevokingOneHasEnded) {
  // The bytes are all there; only the last of them is held back until the token is revoked.
  HubClient writing(hub.port(), token);
  writing.send(writing.request("PUT", "/v1/o/f/2", "Content-Length: 3\r\n") + "ab");
  const std::string other = accountCommand(directory.path(), {"token", "ada", "phone"});
  accountCommand(directory.path(), {"revoke", "ada", "laptop"});
  writing.send("c");
  EXPECT_EQ(writing.receive().status, 403);
  EXPECT_EQ(HubClient(hub.port(), other).get("/v1/o/f/2").status, 404);
}

class HubLateRevocation : public HubServerTest {
 protected:
  /// The status of the answer to a request whose token is revoked while it waits for the account's lock: as a
  /// command on another host does, of which this server has no notice.
  int statusWhenRevokedMeanwhile(const std::string& request) {
    const std::string account = directory / "data/accounts/ada", file = account + "/tokens/laptop";
    const FileDescriptor ledger(::open((account + "/usage").c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(::flock(ledger.number(), LOCK_EX), 0);
    client.send(request);
    while (!isWaitingForALock(hub.process())) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::string record;
    EXPECT_FALSE(readRegular(file, record, [](const struct stat&) { return std::error_code(); }));
    std::ofstream(file, std::ios::binary) << "revoked " << record;
    EXPECT_EQ(::flock(ledger.number(), LOCK_UN), 0);
    return client.receive().status;
  }
  int statusForAnother(const std::string& target) {
    return HubClient(hub.port(), accountCommand(directory.path(), {"token", "ada", "phone"}))
        .get(target)
        .status;
  }
};

TEST_F(HubLateRevocation, ATokenIsLookedAtOnceMoreBeforeAnythingIsMade) {
  ASSERT_EQ(client.put("/v1/o/f/1", "first").status, 201);
  EXPECT_EQ(
      statusWhenRevokedMeanwhile(client.request("PUT", "/v1/o/f/2", "Content-Length: 6\r\n") + "second"),
      403);
  EXPECT_EQ(statusForAnother("/v1/o/f/2"), 404);
}

TEST_F(HubLateRevocation, ATokenIsLookedAtOnceMoreBeforeAnythingIsRemoved) {
  ASSERT_EQ(client.put("/v1/o/f/1", "first").status, 201);
  EXPECT_EQ(statusWhenRevokedMeanwhile(client.request("DELETE", "/v1/o/f/1")), 403);
  EXPECT_EQ(statusForAnother("/v1/o/f/1"), 200);
}

TEST_F(HubTokens, AComputerThatWasRevokedCanGetANewOne) {
  EXPECT_NE(runAccountCommand(directory.path(), {"token", "ada", "laptop"}).status, 0);
  accountCommand(directory.path(), {"revoke", "ada", "laptop"});
  EXPECT_NE(runAccountCommand(directory.path(), {"revoke", "ada", "laptop"}).status, 0);
  const std::string renewed = accountCommand(directory.path(), {"token", "ada", "laptop"});
  EXPECT_EQ(HubClient(hub.port(), renewed).put("/v1/o/f/1", "x").status, 201);
  EXPECT_EQ(client.get("/v1/o/f/1").status, 401);
}

TEST_F(HubTokens, ARemovedAccountIsGoneWithWhatItHeld) {
  ASSERT_EQ(client.put("/v1/o/f/1", "x").status, 201);
  HubClient waiting(hub.port(), token);
  waiting.send(waiting.request("GET", "/v1/o/f/2?wait=300"));
  ASSERT_EQ(client.get("/v1/o/f/2").status, 404);
  accountCommand(directory.path(), {"remove", "ada"});
  EXPECT_EQ(waiting.receive().status, 403);
  EXPECT_EQ(client.get("/v1/o/f/1").status, 401);
  EXPECT_TRUE(std::filesystem::is_empty(directory / "data/removed"));
  const std::string again = accountCommand(directory.path(), {"add", "ada", "laptop"});
  EXPECT_EQ(HubClient(hub.port(), again).get("/v1/list/f").body, "end\n");
}

TEST_F(HubTokens, ALinkAmongTheObjectsLeadsNowhere) {
  ASSERT_EQ(client.put("/v1/o/f/1", "first").status, 201);
  std::filesystem::create_symlink(directory / "data/accounts/ada/tokens/laptop",
                                  directory / "data/accounts/ada/objects/f/2");
  EXPECT_EQ(client.get("/v1/o/f/2").status, 500);
  EXPECT_EQ(HubClient(hub.port(), token).get("/v1/list/f").body.find("f/2"), std::string::npos);
}

TEST_F(HubTokens, TheAccountsAreClosedToOtherUsers) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory / "data")) {
    const auto others = std::filesystem::perms::group_all | std::filesystem::perms::others_all;
    EXPECT_EQ(entry.status().permissions() & others, std::filesystem::perms::none) << entry.path();
  }
}

TEST_F(HubTokens, TheAccountsAreShownWithWhatTheyHold) {
  ASSERT_EQ(client.put("/v1/o/f/1", std::string(10'000, 'x')).status, 201);
  accountCommand(directory.path(), {"token", "ada", "phone"});
  accountCommand(directory.path(), {"revoke", "ada", "phone"});
  accountCommand(directory.path(), {"add", "bob"});
  accountCommand(directory.path(), {"quota", "bob", "20 MiB"});
  EXPECT_EQ(accountCommand(directory.path(), {"list"}),
            "ada  10.8 KiB of 1 GiB\n  laptop\n  phone  revoked\nbob  0 bytes of 20 MiB\n  first");
  EXPECT_EQ(accountCommand(directory.path(), {"list", "bob"}), "bob  0 bytes of 20 MiB\n  first");
}

TEST_F(HubTokens, NamesHaveUpToFortyCharacters) {
  const std::string longest(40, 'a');
  const std::string longestsToken = accountCommand(directory.path(), {"add", longest, longest});
  EXPECT_EQ(HubClient(hub.port(), longestsToken).get("/v1/o/f/1").status, 404);
}

TEST_F(HubTokens, CommandsThatMakeNoSenseAreRefused) {
  const std::vector<std::pair<std::vector<std::string>, int>> rows = {
      {{}, 2},
      {{"add"}, 2},
      {{"add", "ADA"}, 2},
      {{"add", "-ada"}, 2},
      {{"add", "../ada"}, 2},
      {{"add", std::string(41, 'a')}, 2},
      {{"add", "ada"}, 1},
      {{"add", "bob", "a/b"}, 2},
      {{"token", "ada"}, 2},
      {{"token", "bob", "laptop"}, 1},
      {{"token", "ada", "laptop"}, 1},
      {{"quota", "ada", "0"}, 2},
      {{"quota", "ada", "many"}, 2},
      {{"quota", "ada", "-1"}, 2},
      {{"quota", "ada", "99999999999999999999"}, 2},
      {{"quota", "bob", "1 GiB"}, 1},
      {{"revoke", "ada", "phone"}, 1},
      {{"remove", "bob"}, 1},
      {{"remove"}, 2},
      {{"forget", "ada"}, 2},
  };
  for (const auto& [arguments, status] : rows) {
    const ProgramResult result = runAccountCommand(directory.path(), arguments);
    EXPECT_EQ(result.status, status) << testing::PrintToString(arguments) << result.output;
    EXPECT_TRUE(result.output.starts_with("corvane-hub: ")) << result.output;
  }
  EXPECT_EQ(client.get("/v1/o/f/1").status, 404);  // the account is as it was
}

}  // namespace

}  // namespace corvane
