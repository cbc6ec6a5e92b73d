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

// What comes of a call, in a word: what it answers, or the kind of its failure.
template <typename Call>
std::string outcomeOf(const Call& call) {
  try {
    return call();
  } catch (const PlaceFullException&) {
    return "full";
  } catch (const PlaceRefusedException&) {
    return "refused";
  } catch (const PlaceException&) {
    return "failed";
  }
}

std::string wordFor(Made made) {
  return made == Made::made ? "made" : made == Made::present ? "present" : "unknown";
}

// By a server that wants no second attempt before all is over.
std::string lastAnswer(const std::string& status) {
  return httpAnswer(status, "", "Retry-After: 100000\r\n");
}

struct Meaning {
  const char* status;
  const char* get;
  const char* put;
  const char* remove;
};

TEST_P(HostilePlaceTest, EachStatusMeansOneThing) {
  const Meaning meanings[] = {
      {"200 OK", "present", "done", "done"},
      {"201 Created", "failed", "done", "done"},
      {"204 No Content", "failed", "done", "done"},
      {"206 Partial Content", "failed", "done", "done"},
      {"207 Multi-Status", "failed", "failed", "failed"},
      {"302 Found", "failed", "failed", "failed"},
      {"304 Not Modified", "failed", "failed", "failed"},
      {"400 Bad Request", "failed", "failed", "failed"},
      {"401 Unauthorized", "refused", "refused", "refused"},
      {"402 Payment Required", "refused", "refused", "refused"},
      {"403 Forbidden", "refused", "refused", "refused"},
      {"404 Not Found", "absent", "failed", "done"},
      {"405 Method Not Allowed", "failed", "failed", "failed"},
      {"409 Conflict", "failed", "failed", "failed"},
      {"410 Gone", "failed", "failed", "failed"},
      {"412 Precondition Failed", "failed", "failed", "failed"},
      {"413 Content Too Large", "full", "full", "full"},
      {"416 Range Not Satisfiable", "failed", "failed", "failed"},
      {"423 Locked", "failed", "failed", "failed"},
      {"429 Too Many Requests", "failed", "failed", "failed"},
      {"500 Error", "failed", "failed", "failed"},
      {"501 Not Implemented", "failed", "failed", "failed"},
      {"502 Bad Gateway", "failed", "failed", "failed"},
      {"503 Unavailable", "failed", "failed", "failed"},
      {"504 Timeout", "failed", "failed", "failed"},
      {"507 Full", "full", "full", "full"},
  };
  for (const Meaning& each : meanings) {
    SCOPED_TRACE(each.status);
    // A folder that is to be written into is there.
    const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
      connection.send(lastAnswer(request.starts_with("MKCOL") ? "201 Created" : each.status));
    });
    EXPECT_EQ(outcomeOf([&] {
                const GetAnswer answer = placeAt(server)->get({asking()}).front();
                return answer.state == GetAnswer::State::absent ? "absent" : "present";
              }),
              each.get);
    EXPECT_EQ(outcomeOf([&] {
                placeAt(server)->put({{"f/1", "x"}});
                return "done";
              }),
              each.put);
    EXPECT_EQ(outcomeOf([&] {
                placeAt(server)->remove({"f/1"});
                return "done";
              }),
              each.remove);
  }
}

// "unknown" wherever it may have been carried out, and nowhere else: the one who asks waits for that.
TEST_P(HostilePlaceTest, EachStatusOfAnAttemptToMakeAnObjectMeansOneThing) {
  struct Attempt {
    const char* status;
    const char* outcome;
    const char* moved;  // WebDAV's, where that is another one
  };
  const Attempt attempts[] = {
      {"200 OK", "made", nullptr},
      {"201 Created", "made", nullptr},
      {"204 No Content", "made", nullptr},
      {"207 Multi-Status", "failed", "unknown"},
      {"302 Found", "failed", nullptr},
      {"304 Not Modified", "failed", nullptr},
      {"400 Bad Request", "failed", nullptr},
      {"401 Unauthorized", "refused", nullptr},
      {"402 Payment Required", "refused", nullptr},
      {"403 Forbidden", "refused", nullptr},
      {"404 Not Found", "failed", "unknown"},
      {"405 Method Not Allowed", "failed", "unknown"},
      {"409 Conflict", "unknown", nullptr},
      {"412 Precondition Failed", "present", nullptr},
      {"413 Content Too Large", "full", nullptr},
      {"423 Locked", "failed", "unknown"},
      {"429 Too Many Requests", "failed", nullptr},
      {"500 Error", "unknown", nullptr},
      {"501 Not Implemented", "failed", nullptr},
      {"502 Bad Gateway", "unknown", nullptr},
      {"503 Unavailable", "unknown", nullptr},
      {"504 Timeout", "unknown", nullptr},
      {"507 Full", "full", nullptr},
      {"", "unknown", nullptr},  // the connection is closed
  };
  const bool isMoved = GetParam() == "webdav";
  for (const Attempt& each : attempts) {
    SCOPED_TRACE(each.status);
    const std::string answer = *each.status ? lastAnswer(each.status) : std::string();
    const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
      const bool isAttempt = request.starts_with(isMoved ? "MOVE" : "PUT");
      connection.send(isAttempt                      ? answer
                      : request.starts_with("HEAD ") ? httpAnswer("404 Not Found")
                                                     : httpAnswer("201 Created"));
    });
    EXPECT_EQ(outcomeOf([&] { return wordFor(placeAt(server)->putNew("f/1", "x")); }),
              isMoved && each.moved ? each.moved : each.outcome);
  }
}

TEST_P(HostilePlaceTest, AnObjectMayHaveAsManyBytesAsItMayHave) {
  for (const std::size_t bytes : {std::size_t{1000}, std::size_t{1001}}) {
    const ScriptedServer server(httpAnswer("200 OK", std::string(bytes, 'x')));
    EXPECT_EQ(placeAt(server)->get({asking()}).front().bytes.size(), bytes == 1000 ? 1000U : 0U);
  }
}

TEST_P(HostilePlaceTest, AFolderThatIsNotThereHoldsNothingButABucketIsThere) {
  const ScriptedServer server(httpAnswer("404 Not Found"));
  EXPECT_EQ(outcomeOf([&] { return std::to_string(placeAt(server)->list("f").size()); }),
            GetParam() == "s3" ? "failed" : "0");
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
