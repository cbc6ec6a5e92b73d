#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/pelto/place/ScriptedServer.h"

// Places over HTTP whose server answers anything at all. None of it may be taken for an object or for
// success, none may hang, and no message may show a secret.

namespace corvane::pelto {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr const char* kSecret = "s3cret-s3cret";

class HostilePlaceTest : public testing::TestWithParam<std::string> {
 protected:
  std::unique_ptr<Place> placeAt(const ScriptedServer& server, double seconds = 20) const {
    std::string address = "http://" + server.host() + "/dav";
    if (GetParam() == "s3") address = "s3://bucket?endpoint=http://" + server.host();
    if (GetParam() == "hub") address = "hub://" + server.host() + "?tls=no";
    return makePlace(parsePlaceAddress(address), {"alice", SharedSecret(kSecret)}, after(seconds));
  }

  template <typename Call>
  static void expectFailure(const Call& call) {
    try {
      call();
      ADD_FAILURE() << "taken";
    } catch (const PlaceException& exception) {
      EXPECT_THAT(exception.reason(), Not(HasSubstr(kSecret)));
      EXPECT_THAT(exception.reason(), HasSubstr(" at 127.0.0.1:"));
    }
  }

  FakePlatform platform;
};

GetRequest asking(const std::string& tag = {}) { return {"f/1", Writing::alone, tag, 1000}; }

TEST_P(HostilePlaceTest, NoRubbishIsTakenForAnObjectOrAListing) {
  const std::string answers[] = {
      "",
      "rubbish",
      "HTTP/1.1 200 OK\r\n\r\nwithout a length",
      "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\ncut",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n",
      httpAnswer("200 OK", "\x1f\x8b", "Content-Encoding: gzip\r\n"),
      httpAnswer("206 Partial Content", "part"),
      httpAnswer("301 Moved", "", "Location: https://elsewhere.example.org/\r\n"),
      httpAnswer("302 Found", "", std::string("Location: /") + kSecret + "\r\n"),
      httpAnswer("304 Not Modified"),  // nobody asked whether
      httpAnswer("400 Bad", kSecret),
      httpAnswer("401 Unauthorized", kSecret, "WWW-Authenticate: Basic realm=\"x\"\r\n"),
      httpAnswer("401 Unauthorized", kSecret, "WWW-Authenticate: Negotiate\r\n"),
      httpAnswer("403 Forbidden", std::string("<Error><Code>") + kSecret + "</Code></Error>"),
      httpAnswer("410 Gone"),
      httpAnswer("500 Error", "Authorization: " + std::string(kSecret)),
      httpAnswer("507 Full"),
  };
  for (const std::string& answer : answers) {
    SCOPED_TRACE(answer.substr(0, 100));
    const ScriptedServer server(answer);
    expectFailure([&] { placeAt(server)->get({asking()}); });
    expectFailure([&] { placeAt(server)->list("f"); });
  }
}

TEST_P(HostilePlaceTest, OfWhatIsTooLongNothingIsTaken) {
  const ScriptedServer server(httpAnswer("200 OK", std::string(200'000'000, 'x')));
  const GetAnswer answer = placeAt(server)->get({asking()}).front();
  EXPECT_EQ(answer.state, GetAnswer::State::tooLong);
  EXPECT_EQ(answer.bytes + answer.tag, "");
  expectFailure([&] { placeAt(server)->list("f"); });
}

TEST_P(HostilePlaceTest, NoRubbishIsTakenForAListing) {
  const std::string answers[] = {
      httpAnswer("200 OK", ""),
      httpAnswer("200 OK", "<html>Log in</html>"),
      httpAnswer("207 Multi-Status", ""),
      httpAnswer("207 Multi-Status", "<!DOCTYPE x><multistatus xmlns='DAV:'/>"),
      httpAnswer("207 Multi-Status", "<html/>"),
      httpAnswer("200 OK", "<ListBucketResult><IsTruncated>true</IsTruncated></ListBucketResult>"),
      httpAnswer("200 OK", "12 34 f/1\n"),
      httpAnswer("200 OK", "12 34 f/1\nend"),
      httpAnswer("200 OK", "-1 34 f/1\nend\n"),
      httpAnswer("200 OK", "12 f/1\nend\n"),
  };
  for (const std::string& answer : answers) {
    SCOPED_TRACE(answer);
    const ScriptedServer server(answer);
    expectFailure([&] { placeAt(server)->list("f"); });
  }
}

TEST_P(HostilePlaceTest, NothingIsMadeWhereTheServerDoesNotSaySo) {
  const std::string answers[] = {
      "",
      "rubbish",
      "HTTP/1.1 201 Created\r\nContent-Length: 100\r\n\r\ncut",
      httpAnswer("207 Multi-Status", "<multistatus xmlns='DAV:'/>"),
      httpAnswer("301 Moved", "", "Location: https://elsewhere.example.org/\r\n"),
      httpAnswer("304 Not Modified"),
      httpAnswer("400 Bad"),
      httpAnswer("401 Unauthorized", "", "WWW-Authenticate: Basic realm=\"x\"\r\n"),
      httpAnswer("403 Forbidden"),
      httpAnswer("500 Error"),
      httpAnswer("501 Not Implemented"),
      httpAnswer("507 Full"),
  };
  for (const std::string& answer : answers) {
    SCOPED_TRACE(answer.substr(0, 100));
    const ScriptedServer server(answer);
    try {
      EXPECT_EQ(placeAt(server)->putNew("f/1", "bytes"), Made::unknown);
    } catch (const PlaceException& exception) {
      EXPECT_THAT(exception.reason(), Not(HasSubstr(kSecret)));
    }
    expectFailure([&] { placeAt(server)->put({{"f/1", "bytes"}}); });
    expectFailure([&] { placeAt(server)->remove({"f/1"}); });
  }
}

TEST_P(HostilePlaceTest, TheKindOfFailureIsKnown) {
  const ScriptedServer full(httpAnswer("507 Insufficient Storage")), large(httpAnswer("413 Too Large")),
      revoked(httpAnswer("403 Forbidden")), unknown(httpAnswer("401 Unauthorized"));
  EXPECT_THROW(placeAt(full)->put({{"f/1", "x"}}), PlaceFullException);
  EXPECT_THROW(placeAt(large)->putNew("f/1", "x"), PlaceFullException);
  EXPECT_THROW(placeAt(revoked)->putNew("f/1", "x"), PlaceRefusedException);
  EXPECT_THROW(placeAt(revoked)->get({asking()}), PlaceRefusedException);
  EXPECT_THROW(placeAt(unknown)->get({asking()}), PlaceRefusedException);
}

// Two pages that each name the other as the next.
TEST_P(HostilePlaceTest, AListingWithoutAnEndIsAnError) {
  std::atomic<int> count = 0;
  const ScriptedServer server([&](const std::string&, ScriptedConnection& connection) {
    const std::string body = "<ListBucketResult><IsTruncated>true</IsTruncated><NextContinuationToken>" +
                             std::to_string(++count % 2) + "</NextContinuationToken></ListBucketResult>";
    connection.send(httpAnswer("200 OK", body));
  });
  expectFailure([&] { placeAt(server, 2)->list("f"); });
}

TEST_P(HostilePlaceTest, ForeignNamesInAListingArePassedOver) {
  std::string names[] = {"..", "a/b", "A", "x.y", std::string(101, 'a'), "%2e", "1"};
  std::string multistatus = "<multistatus xmlns='DAV:'><response><href>/dav/f/</href></response>";
  std::string keys =
      "<ListBucketResult><IsTruncated>false</IsTruncated><Contents><Key>1</Key></Contents>"
      "<Contents><Key>other/1</Key></Contents>";
  std::string lines = "1 1 other/1\n1 1 1\n1 1 ../../etc/passwd\n";
  for (const std::string& name : names) {
    if (name.find('/') == std::string::npos)
      multistatus += "<response><href>/dav/f/" + name + "</href></response>";
    keys += "<Contents><Key>f/" + name + "</Key><Size>1</Size></Contents>";
    lines += "1 1 f/" + name + "\n";
  }
  std::string answer = httpAnswer("207 Multi-Status", multistatus + "</multistatus>");
  if (GetParam() == "s3") answer = httpAnswer("200 OK", keys + "</ListBucketResult>");
  if (GetParam() == "hub") answer = httpAnswer("200 OK", lines + "end\n");
  const ScriptedServer server(answer);
  const std::vector<PlaceObject> objects = placeAt(server)->list("f");
  ASSERT_EQ(objects.size(), 1U);
  EXPECT_EQ(objects.front().name, "f/1");
}

// Whether it is the right one only a seal tells; it is neither more nor other than what came.
TEST_P(HostilePlaceTest, OtherContentComesAsItIs) {
  const ScriptedServer server(httpAnswer("200 OK", "another's", "ETag: \"other\"\r\n"));
  const GetAnswer answer = placeAt(server)->get({asking("\"mine\"")}).front();
  EXPECT_EQ(answer.state, GetAnswer::State::present);
  EXPECT_EQ(answer.bytes, "another's");
  EXPECT_EQ(answer.tag, "\"other\"");
}

TEST_P(HostilePlaceTest, TagsCannotAddHeaders) {
  const ScriptedServer server(httpAnswer("200 OK", "x", "ETag: \"a\tb\"\r\n"));
  const std::unique_ptr<Place> place = placeAt(server);
  const std::string tag = place->get({asking()}).front().tag;
  EXPECT_EQ(tag.find_first_of("\r\n"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Places, HostilePlaceTest, testing::Values("webdav", "s3", "hub"),
                         [](const auto& kind) { return kind.param; });

}  // namespace
}  // namespace corvane::pelto
