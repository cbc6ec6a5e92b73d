#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tools/corvane-hub/Connection.h"

namespace corvane::hubserver {

namespace {

using std::chrono::seconds;

constexpr std::uint64_t kMebibyte = 1 << 20;

/// When something happened: not before, and not after.
struct Span {
  TimePoint before, after;
};

/// A connection of the account "ada" without the server around it, so that the test says what time it is.
class HubConnection : public testing::Test {
 protected:
  HubConnection() {
    service.accounts.prepare();
    service.accounts.add("ada", 2 * kMebibyte);
    token = service.accounts.addToken("ada", "laptop").value();
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) != 0)
      throw std::system_error(lastSystemError(), "socketpair");
    client = FileDescriptor(ends[0]);
    Socket socket(service.context, boost::asio::generic::stream_protocol(AF_UNIX, 0), ends[1]);
    connection =
        std::make_shared<Connection>(service, Transport(std::move(socket), TlsSession(nullptr, &SSL_free)));
    service.connections.insert(connection);
    connection->start();
  }

  std::string request(const std::string& line, const std::string& headers = {}) const {
    return line + " HTTP/1.1\r\nHost: hub.example\r\nAuthorization: Bearer " + token + "\r\n" + headers +
           "\r\n";
  }
  /// Has the connection take in what the client sends.
  Span send(std::string_view bytes) {
    Span span{std::chrono::steady_clock::now(), {}};
    EXPECT_EQ(::send(client.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(bytes.size()));
    turn();
    span.after = std::chrono::steady_clock::now();
    return span;
  }
  /// What has come to the client and was not read yet.
  std::string received() {
    std::string bytes;
    char buffer[64 * 1024];
    while (true) {
      const ssize_t count = ::recv(client.number(), buffer, sizeof buffer, 0);
      isEnded = count == 0;
      if (count <= 0) return bytes;
      bytes.append(buffer, static_cast<std::size_t>(count));
    }
  }
  /// The status of the one answer that has come; 0 for none.
  int receivedStatus() {
    constexpr std::string_view kVersion = "HTTP/1.1 ";
    const std::string answer = received();
    return answer.starts_with(kVersion) ? std::stoi(answer.substr(kVersion.size())) : 0;
  }
  void turn() {
    service.context.restart();
    service.context.poll();
  }
  void tick(TimePoint time) {
    connection->tick(time);
    turn();
  }
  /// What has `allowed` from `begin` on goes on until then: after that it has ended, one way or another.
  bool lastsExactly(const Span& begin, seconds allowed) {
    tick(begin.before + allowed - std::chrono::nanoseconds(1));
    const bool lasted = service.connections.contains(connection) && receivedStatus() == 0;
    tick(begin.after + allowed);
    return lasted;
  }
  void store(const std::string& name, std::size_t bytes) {
    Upload upload(account());
    upload.write(std::string(bytes, 'x'));
    const Stored stored = hubserver::store(account(), *objectPathOf(name), upload,
                                           service.accounts.quota("ada"), [] { return true; });
    ASSERT_EQ(stored, Stored::made);
  }
  std::string account() const { return service.accounts.directoryOf("ada"); }

  TemporaryDirectory directory;
  HubService service{directory / "data"};
  std::string token;
  FileDescriptor client;
  std::shared_ptr<Connection> connection;
  bool isEnded = false;  ///< nothing more comes to the client
};

TEST_F(HubConnection, ARequestsHeadHasTenSecondsFromItsFirstByteOn) {
  send(request("GET /v1/o/f/1"));  // between requests there is more time
  ASSERT_EQ(receivedStatus(), 404);
  const Span first = send("GET ");
  send("/v1");  // and another piece does not lengthen it
  EXPECT_TRUE(lastsExactly(first, seconds(10)));
  EXPECT_EQ(receivedStatus(), 408);
}

TEST_F(HubConnection, AHeadWithoutAnEndInEightKibibytesIsNotReadOn) {
  std::string head = request("GET /v1/o/f/1", "X: ");
  head.resize(8191, 'x');
  send(head);
  EXPECT_EQ(receivedStatus(), 0);
  send("x");
  EXPECT_EQ(receivedStatus(), 431);
}

TEST_F(HubConnection, ABodyHasTwentySecondsAndOneForEachKibibyteToCome) {
  const Span head =
      send(request("PUT /v1/o/f/1", "Content-Length: " + std::to_string(kMebibyte) + "\r\n") + "some");
  EXPECT_TRUE(lastsExactly(head, seconds(20 + 1024)));
  EXPECT_EQ(receivedStatus(), 408);
}

TEST_F(HubConnection, AnObjectHasTwentySecondsAndOneForEachKibibyteToBeTaken) {
  store("f/1", kMebibyte);
  const Span asked = send(request("GET /v1/o/f/1"));
  tick(asked.before + seconds(20 + 1024) - std::chrono::nanoseconds(1));
  EXPECT_TRUE(service.connections.contains(connection));
  tick(asked.after + seconds(20 + 1024));
  EXPECT_FALSE(service.connections.contains(connection)) << "the client has not read it all";
}

TEST_F(HubConnection, AComputerWaitsAsLongAsItAsks) {
  const Span asked = send(request("GET /v1/o/f/1?wait=10"));
  EXPECT_TRUE(lastsExactly(asked, seconds(10)));
  EXPECT_EQ(receivedStatus(), 404);
}

TEST_F(HubConnection, AComputerWaitsFiveMinutesAtMost) {
  const Span asked = send(request("GET /v1/o/f/1?wait=86400"));
  EXPECT_TRUE(lastsExactly(asked, seconds(300)));
  EXPECT_EQ(receivedStatus(), 404);
}

TEST_F(HubConnection, WhoWaitsWithATokenThatIsRevokedIsCutOff) {
  send(request("GET /v1/o/f/1?wait=300"));
  connection->checkToken();
  EXPECT_EQ(receivedStatus(), 0) << "the token is good";
  service.accounts.revoke("ada", "laptop");
  connection->checkToken();
  EXPECT_EQ(receivedStatus(), 403);
}

TEST_F(HubConnection, WhoIsSentAnObjectForATokenThatIsRevokedIsCutOff) {
  store("f/1", kMebibyte);
  send(request("GET /v1/o/f/1"));
  service.accounts.revoke("ada", "laptop");
  connection->checkToken();
  EXPECT_LT(received().size(), kMebibyte);
  EXPECT_TRUE(isEnded);
}

TEST_F(HubConnection, AListingIsSentInPiecesWithoutBeingKept) {
  const std::string base(90, 'x');
  store("f/" + base, 1);
  const std::string folder = account() + "/objects/f/";
  for (int i = 0; i < 1000; ++i) {
    const std::string name = folder + std::to_string(i) + '-' + base;
    ASSERT_EQ(::link((folder + base).c_str(), name.c_str()), 0) << name;
  }
  send(request("GET /v1/list/f"));
  const std::string begin = received();
  const std::size_t head = begin.find("\r\n\r\n");
  ASSERT_NE(head, std::string::npos);
  EXPECT_LT(std::stoul(begin.substr(head + 4), nullptr, 16), 20'000U) << "of 100,000 bytes";
}

TEST_F(HubConnection, OneThatIsClosedIsCountedNoMore) {
  send(request("GET /v1/o/f/1"));
  EXPECT_EQ(service.connectionsOfAccounts["ada"], 1);
  client.close();
  turn();
  EXPECT_TRUE(service.connections.empty());
  EXPECT_TRUE(service.connectionsOfAccounts.empty()) << "nothing is kept for who has gone";
}

}  // namespace

}  // namespace corvane::hubserver
