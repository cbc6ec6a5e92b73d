#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/HttpClient.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "tests/fakes/FreePort.h"
#include "tests/pelto/place/ScriptedServer.h"

// What comes over a network, and over a bad one.

namespace corvane::pelto {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kToken = "t0ken-t0ken";
constexpr int kMostAttempts = 4;

HttpSettings settings() {
  HttpSettings settings;
  settings.host = "the.host";
  settings.authorize = [](const HttpRequest&) {
    return std::vector<std::string>{std::string("Authorization: Bearer ") + kToken};
  };
  settings.reasonIn = [](const HttpAnswer& answer) { return answer.body; };
  settings.secrets = {SharedSecret(kToken)};
  settings.firstPause = 0.001;
  return settings;
}

HttpRequest reading(const std::string& url) {
  HttpRequest request;
  request.what = "read f/1";
  request.method = "GET";
  request.url = url;
  request.mostBytes = 1000;
  return request;
}

HttpRequest reading(const ScriptedServer& server) { return reading("http://" + server.host() + "/f/1"); }

HttpRequest making(const ScriptedServer& server) {
  HttpRequest request = reading(server);
  request.method = "PUT";
  request.body = "the body";
  request.hasBody = true;
  request.isIdempotent = false;
  return request;
}

template <typename Call>
std::string failureOf(const Call& call) {
  try {
    call();
  } catch (const PlaceException& exception) {
    return exception.reason();
  }
  return "(none)";
}

class HttpClientTest : public testing::Test {
 protected:
  std::string failureOf(const std::string& answer) {
    const ScriptedServer server(answer);
    HttpClient own(settings(), after(30));
    return pelto::failureOf([&] { own.perform(reading(server)); });
  }

  HttpClient client{settings(), after(30)};
};

TEST_F(HttpClientTest, ARequestIsSentAndAnsweredAsItIs) {
  const ScriptedServer server(httpAnswer("201 Created", "abc", "X-More:  of it \r\n"));
  HttpRequest request = making(server);
  request.headers = {"If-None-Match: *"};
  const HttpAnswer answer = client.perform(request);
  EXPECT_EQ(answer.status, 201);
  EXPECT_EQ(answer.body, "abc");
  EXPECT_EQ(answer.header("x-more"), "of it");
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_THAT(server.requests().front(),
              AllOf(StartsWith("PUT /f/1 HTTP/1.1\r\n"), HasSubstr("\r\nIf-None-Match: *\r\n"),
                    HasSubstr("\r\nAuthorization: Bearer t0ken-t0ken\r\n"), HasSubstr("\r\n\r\nthe body"),
                    Not(HasSubstr("Expect:")), Not(HasSubstr("Accept-Encoding"))));
}

TEST_F(HttpClientTest, AnswersThatCannotBeTrustedAreErrors) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string thousand(1001, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {httpAnswer("200 OK", thousand), "more than 1000 bytes"},
      {ok + "Transfer-Encoding: chunked\r\n\r\n3e9\r\n" + thousand + "\r\n0\r\n\r\n", "more than 1000 bytes"},
      {ok + "\r\nabc", "doesn't say how long it is"},
      {"HTTP/1.0 200 OK\r\n\r\nabc", "doesn't say how long it is"},
      {ok + "Content-Length: 3\r\nContent-Length: 4\r\n\r\nabcd", "two lengths"},
      {httpAnswer("200 OK", "abc", "Content-Encoding: gzip\r\n"), "encoding that nobody asked for"},
      {httpAnswer("200 OK", "abc", "Content-Encoding: br\r\n"), "encoding that nobody asked for"},
      {ok + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", "Can't read f/1"},
      {httpAnswer("200 OK", "abc", "X: " + std::string(70'000, 'x') + "\r\n"), "answer is too long"},
      {ok + "Content-Length: abc\r\n\r\nabc", "Can't read f/1"},
      {ok + "Content-Length: -3\r\n\r\nabc", "Can't read f/1"},
      {ok + "Transfer-Encoding: chunked\r\n\r\nzz\r\nabc", "Can't read f/1"},
      {"rubbish\r\n\r\n", "Can't read f/1"},
      {"<html>no HTTP</html>", "Can't read f/1"},
      {"", "connection was lost"},
      {ok, "doesn't say how long it is"},
      {ok + "Content-Length: 10\r\n\r\nabc", "connection was lost"},
      {ok + "Transfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n", "connection was lost"},
      {ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nabc", "connection was lost"},
  };
  for (const auto& [answer, cause] : cases) {
    SCOPED_TRACE(answer.substr(0, 100));
    EXPECT_THAT(failureOf(answer), AllOf(StartsWith("Can't read f/1 at the.host: "), HasSubstr(cause)));
  }
}

TEST_F(HttpClientTest, AnswersCutAtAnyByteAreErrors) {
  for (const std::string& whole :
       {httpAnswer("200 OK", "abcdefghij"),
        std::string(
            "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nabcde\r\n5\r\nfghij\r\n0\r\n\r\n")}) {
    std::size_t cut = 0;
    const ScriptedServer server([&](const std::string&, ScriptedConnection& connection) {
      connection.send(std::string_view(whole).substr(0, cut));
    });
    // The empty line after the last chunk is where trailers could stand; all of the body is there before it.
    for (; cut < whole.size() - 4; ++cut) {
      SCOPED_TRACE(whole.substr(0, cut));
      EXPECT_THAT(pelto::failureOf([&] { client.perform(reading(server)); }), StartsWith("Can't read f/1"));
    }
    cut = whole.size();
    EXPECT_EQ(client.perform(reading(server)).body, "abcdefghij");
  }
}

TEST_F(HttpClientTest, EndlessAnswersAreCutShort) {
  const std::string ok = "HTTP/1.1 200 OK\r\n", error = "HTTP/1.1 404 Not Found\r\n";
  const std::pair<std::string, std::string> cases[] = {
      {ok + "Transfer-Encoding: chunked\r\n\r\n", "10\r\n0123456789abcdef\r\n"},
      {ok + "Content-Length: 99999999999\r\n\r\n", "0123456789abcdef"},
      {error + "Content-Length: 99999999999\r\n\r\n", "0123456789abcdef"},
      {ok, "X: 0123456789abcdef\r\n"},
      {ok + "X: ", "0123456789abcdef"},
      {"", "HTTP/1.1 103 Early Hints\r\nX: y\r\n\r\n"},
      {"", "0123456789abcdef"},
  };
  for (const auto& [begin, repeated] : cases) {
    SCOPED_TRACE(begin + repeated);
    std::string piece;
    for (int i = 0; i < 500; ++i) piece += repeated;
    const ScriptedServer server([&, start = begin](const std::string&, ScriptedConnection& connection) {
      for (bool isThere = connection.send(start); isThere;) isThere = connection.send(piece);
    });
    EXPECT_THAT(pelto::failureOf([&] { client.perform(reading(server)); }), StartsWith("Can't read f/1"));
    EXPECT_LE(server.requests().size(), static_cast<std::size_t>(kMostAttempts));
  }
}

TEST_F(HttpClientTest, RedirectsAreNotFollowed) {
  const ScriptedServer other(httpAnswer("200 OK", "another's"));
  for (const std::string status : {"301 Moved", "302 Found", "303 See", "307 There", "308 There"}) {
    const ScriptedServer server(httpAnswer(status, "", "Location: http://" + other.host() + "/x\r\n"));
    const HttpRequest request = reading(server);
    const HttpAnswer answer = client.perform(request);
    EXPECT_EQ(answer.status / 100, 3);
    EXPECT_THAT(pelto::failureOf([&] { client.fail(request, answer); }), HasSubstr("leads elsewhere"));
  }
  EXPECT_TRUE(other.requests().empty());
}

TEST_F(HttpClientTest, WhatPassesIsTriedAgain) {
  const std::string passing[] = {"",
                                 "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\ncut",
                                 httpAnswer("500 Error"),
                                 httpAnswer("502 Bad"),
                                 httpAnswer("503 Later"),
                                 httpAnswer("504 Late"),
                                 httpAnswer("429 Many", "", "Retry-After: 0\r\n")};
  for (const std::string& first : passing) {
    SCOPED_TRACE(first);
    int count = 0;
    const ScriptedServer server([&](const std::string&, ScriptedConnection& connection) {
      connection.send(++count < kMostAttempts ? first : httpAnswer("200 OK", "at last"));
    });
    EXPECT_EQ(client.perform(reading(server)).body, "at last");
    EXPECT_EQ(server.requests().size(), static_cast<std::size_t>(kMostAttempts));
  }
}

TEST_F(HttpClientTest, WhatStaysIsAnsweredOrReportedAfterTheLastAttempt) {
  const ScriptedServer busy(httpAnswer("503 Later")), deaf("");
  EXPECT_EQ(client.perform(reading(busy)).status, 503);
  EXPECT_EQ(busy.requests().size(), static_cast<std::size_t>(kMostAttempts));
  EXPECT_THAT(pelto::failureOf([&] { client.perform(reading(deaf)); }), HasSubstr("connection was lost"));
  EXPECT_EQ(deaf.requests().size(), static_cast<std::size_t>(kMostAttempts));
  for (const std::string status :
       {"400 Bad", "401 Who", "402 Pay", "403 No", "404 Not", "405 Not", "409 Conflict", "410 Gone",
        "412 There", "413 Large", "423 Locked", "501 No", "505 No", "507 Full"}) {
    const ScriptedServer server(httpAnswer(status));
    client.perform(reading(server));
    EXPECT_EQ(server.requests().size(), 1U) << status;
  }
}

TEST_F(HttpClientTest, AServerThatAsksForPausesGetsThemAsOftenAsItAsks) {
  std::atomic<int> count = 0;
  const ScriptedServer server([&](const std::string&, ScriptedConnection& connection) {
    connection.send(++count <= 3 * kMostAttempts ? httpAnswer("429 Many", "", "Retry-After: 0\r\n")
                                                 : httpAnswer("200 OK", "at last"));
  });
  HttpSettings quick = settings();
  quick.firstPause = 1e-6;
  EXPECT_EQ(HttpClient(quick, after(30)).perform(reading(server)).body, "at last");
}

TEST_F(HttpClientTest, APauseBeyondTheDeadlineIsNotWaitedFor) {
  const ScriptedServer server(httpAnswer("429 Many", "", "Retry-After: 1000\r\n"));
  EXPECT_EQ(client.perform(reading(server)).status, 429);
  EXPECT_EQ(server.requests().size(), 1U);
  const ScriptedServer dated(httpAnswer("503 Later", "",
                                        "Date: Sun, 22 Nov 2026 10:00:00 GMT\r\n"
                                        "Retry-After: Sun, 22 Nov 2026 11:00:00 GMT\r\n"));
  EXPECT_EQ(client.perform(reading(dated)).status, 503);
  EXPECT_EQ(dated.requests().size(), 1U);
}

TEST_F(HttpClientTest, WhatMustNotBeDoneTwiceIsSentOnce) {
  const std::string answers[] = {"", "HTTP/1.1 201 Cre",
                                 "HTTP/1.1 201 Created\r\nContent-Length: 9\r\n\r\ncut", "rubbish\r\n\r\n"};
  for (const std::string& answer : answers) {
    const ScriptedServer server(answer);
    EXPECT_EQ(client.perform(making(server)).status, 0) << answer;
    EXPECT_EQ(server.requests().size(), 1U) << answer;
  }
  const ScriptedServer busy(httpAnswer("503 Later"));
  EXPECT_EQ(client.perform(making(busy)).status, 503);
  EXPECT_EQ(busy.requests().size(), 1U);
}

TEST_F(HttpClientTest, WhatWasNeverSentIsAnErrorAndNotUnknown) {
  HttpRequest request = reading("http://127.0.0.1:" + std::to_string(freePort()) + "/f/1");
  request.isIdempotent = false;
  EXPECT_THAT(pelto::failureOf([&] { client.perform(request); }),
              AllOf(StartsWith("Can't read f/1 at the.host: "), HasSubstr("online")));
}

TEST_F(HttpClientTest, OtherComputersAreSpokenToInHttpsAlone) {
  for (const char* url : {"http://192.0.2.1/f/1", "http://sync.example.org/f/1", "ftp://127.0.0.1/f/1",
                          "file:///etc/passwd", "http://127.0.0.1.example.org/f/1"}) {
    SCOPED_TRACE(url);
    EXPECT_THAT(pelto::failureOf([&] { client.perform(reading(url)); }), HasSubstr("rotocol"));
  }
}

TEST_F(HttpClientTest, AServerWithoutACertificateIsNotBelieved) {
  const ScriptedServer server(httpAnswer("200 OK", "abc"));
  HttpSettings impatient = settings();
  impatient.connect = 0.5;
  HttpClient strict(impatient, after(30));
  EXPECT_THAT(pelto::failureOf([&] { strict.perform(reading("https://" + server.host() + "/f/1")); }),
              StartsWith("Can't read f/1"));
}

TEST_F(HttpClientTest, ASilentServerIsNotWaitedForLongerThanAllowed) {
  const ScriptedServer server(
      [](const std::string&, ScriptedConnection& connection) { connection.awaitEnd(); });
  HttpSettings impatient = settings();
  impatient.stall = 1;
  HttpClient stalling(impatient, after(300));
  EXPECT_THAT(pelto::failureOf([&] { stalling.perform(reading(server)); }), StartsWith("Can't read f/1"));
  EXPECT_EQ(server.requests().size(), 1U) << "nor once more";
  HttpClient ending(settings(), after(0.3));
  EXPECT_THAT(pelto::failureOf([&] { ending.perform(reading(server)); }), StartsWith("Can't read f/1"));
  HttpClient unknowing(settings(), after(0.3));
  EXPECT_EQ(unknowing.perform(making(server)).status, 0);
}

TEST_F(HttpClientTest, UpToEightRequestsAreUnderWayAtOnce) {
  std::latch eight(8);
  const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
    eight.count_down();
    eight.wait();
    connection.send(httpAnswer("200 OK", request.substr(4, request.find(' ', 4) - 4)));
  });
  std::vector<HttpRequest> requests;
  for (int i = 0; i < 8; ++i)
    requests.push_back(reading("http://" + server.host() + "/" + std::to_string(i)));
  const std::vector<HttpAnswer> answers = client.perform(requests);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(answers[i].body, "/" + std::to_string(i));
}

TEST_F(HttpClientTest, NeverMoreThanEightRequestsAreUnderWay) {
  std::atomic<int> underWay = 0, most = 0;
  const ScriptedServer server([&](const std::string&, ScriptedConnection& connection) {
    const int now = ++underWay;
    for (int before = most; before < now && !most.compare_exchange_weak(before, now);) {
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    --underWay;
    connection.send(httpAnswer("200 OK", "x"));
  });
  const std::vector<HttpRequest> requests(100, reading(server));
  for (const HttpAnswer& answer : client.perform(requests)) EXPECT_EQ(answer.body, "x");
  EXPECT_LE(most, 8);
}

TEST_F(HttpClientTest, ErrorsHaveTheKindOfTheirStatusAndShowNoSecret) {
  const HttpRequest request = reading("http://127.0.0.1/f/1");
  HttpAnswer answer;
  answer.body = "no such token: t0ken-t0ken\nsecond line";
  for (const int status : {401, 402, 403}) {
    answer.status = status;
    EXPECT_THROW(client.fail(request, answer), PlaceRefusedException);
  }
  for (const int status : {413, 507}) {
    answer.status = status;
    EXPECT_THROW(client.fail(request, answer), PlaceFullException);
  }
  for (const int status : {400, 302, 423, 429, 500, 503}) {
    answer.status = status;
    const std::string failure = pelto::failureOf([&] { client.fail(request, answer); });
    EXPECT_THAT(failure, AllOf(StartsWith("Can't read f/1 at the.host: "), Not(HasSubstr(kToken))));
    answer.body = "plain\x1b[31m words\nsecond line";
    EXPECT_THAT(pelto::failureOf([&] { client.fail(request, answer); }),
                AllOf(HasSubstr(std::to_string(status) + " (plain[31m words)"), Not(HasSubstr("second"))));
  }
  for (const int status : {423, 429, 500, 502, 503, 504}) {
    answer.status = status;
    EXPECT_THAT(pelto::failureOf([&] { client.fail(request, answer); }), HasSubstr("again at the next sync"));
  }
}

TEST_F(HttpClientTest, TheServerAndItsProtocolAreKnown) {
  const ScriptedServer server(httpAnswer("200 OK", "", "Server: Little/1.0\r\n"));
  client.perform(reading(server));
  EXPECT_EQ(client.server(), "Little/1.0, HTTP/1.1");
}

// Proxies of the environment; set for this test's process alone.
TEST_F(HttpClientTest, ProxiesOfTheEnvironmentHoldForOtherComputersAlone) {
  const ScriptedServer proxy(httpAnswer("403 Forbidden")), server(httpAnswer("200 OK", "direct"));
  const std::string url = "http://" + proxy.host();
  for (const char* name : {"http_proxy", "https_proxy", "all_proxy"}) ::setenv(name, url.c_str(), 1);
  HttpClient proxied(settings(), after(30));
  EXPECT_EQ(proxied.perform(reading(server)).body, "direct");
  EXPECT_TRUE(proxy.requests().empty());
  const std::string failure =
      pelto::failureOf([&] { proxied.perform(reading("https://sync.example.org/f/1")); });
  for (const char* name : {"http_proxy", "https_proxy", "all_proxy"}) ::unsetenv(name);
  EXPECT_THAT(failure, StartsWith("Can't read f/1"));
  ASSERT_FALSE(proxy.requests().empty());
  EXPECT_THAT(proxy.requests().front(),
              AllOf(StartsWith("CONNECT sync.example.org:443 "), Not(HasSubstr(kToken))));
}

}  // namespace
}  // namespace corvane::pelto
