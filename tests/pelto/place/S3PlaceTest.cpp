#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/pelto/place/S3Place.h"
#include "CorvaneSyncClient/platform/pelto/place/S3Signature.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/pelto/place/ScriptedServer.h"

// What is sent to a server for S3, and what is made of its refusals.

namespace corvane::pelto {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kEmptyListing = "<ListBucketResult><IsTruncated>false</IsTruncated></ListBucketResult>";

class S3PlaceTest : public testing::Test {
 protected:
  static std::string endpoint(const ScriptedServer& server) {
    return "localhost:" + std::to_string(server.port());
  }
  S3Place placeAt(const ScriptedServer& server, const std::string& style = "path") const {
    return {parsePlaceAddress("s3://bucket/pre%20fix?region=eu-central-1&style=" + style +
                              "&endpoint=http://" + endpoint(server)),
            {"ID", SharedSecret(kSecret)},
            after(30)};
  }
  // The value of a header of the request.
  static std::string header(const std::string& request, const std::string& name) {
    const std::size_t begin = request.find("\r\n" + name + ": ") + name.size() + 4;
    return request.substr(begin, request.find('\r', begin) - begin);
  }
  template <typename Call>
  static std::string failureOf(const Call& call) {
    try {
      call();
    } catch (const PlaceException& exception) {
      return exception.reason();
    }
    return "(none)";
  }
  static std::string errorAnswer(const std::string& status, const std::string& code) {
    return httpAnswer(status, "<?xml version=\"1.0\"?><Error><Code>" + code +
                                  "</Code><Message>in many words</Message></Error>");
  }

  static inline const std::string kSecret = "s3cret/key+1";
  FakePlatform platform;
};

TEST_F(S3PlaceTest, TheBucketStandsInThePathOrInTheHostAndTheSignatureIsForThatHost) {
  for (const std::string style : {"path", "host"}) {
    SCOPED_TRACE(style);
    const ScriptedServer server([](const std::string& request, ScriptedConnection& connection) {
      connection.send(request.find("list-type") == std::string::npos ? httpAnswer("200 OK")
                                                                     : httpAnswer("200 OK", kEmptyListing));
    });
    S3Place place = placeAt(server, style);
    EXPECT_EQ(place.putNew("f/1", "bytes"), Made::made);
    place.put({{"f/2", "bytes"}});
    place.get({{"f/1", Writing::contested, {}, 10}});
    place.remove({"f/1"});
    EXPECT_TRUE(place.list("f").empty());
    const bool isInHost = style == "host";
    const std::string host = (isInHost ? "bucket." : "") + endpoint(server);
    ASSERT_EQ(server.requests().size(), 5U);
    for (const std::string& request : server.requests()) {
      const std::size_t space = request.find(' ');
      const std::string target = request.substr(space + 1, request.find(' ', space + 1) - space - 1);
      const std::string path = target.substr(0, target.find('?'));
      const std::string query = path.size() == target.size() ? "" : target.substr(path.size() + 1);
      const std::string object = query.empty() ? "/pre%20fix/f/" : "";
      EXPECT_THAT(path, StartsWith((isInHost ? "" : "/bucket") + object)) << request;
      EXPECT_EQ(header(request, "Host"), host);
      const std::vector<std::string> expected =
          signedS3Headers({"ID", SharedSecret(kSecret), "eu-central-1"}, request.substr(0, space), host, path,
                          query, request.substr(request.find("\r\n\r\n") + 4), platform.clock.now());
      EXPECT_EQ("Authorization: " + header(request, "Authorization"), expected.back());
    }
  }
}

TEST_F(S3PlaceTest, AllPagesOfAListingAreAskedForAndOtherKeysArePassedOver) {
  const auto page = [](const std::string& key, const std::string& next) {
    return httpAnswer("200 OK", "<ListBucketResult><IsTruncated>" +
                                    std::string(next.empty() ? "false" : "true") +
                                    "</IsTruncated><NextContinuationToken>" + next +
                                    "</NextContinuationToken><Contents><Key>" + key +
                                    "</Key></Contents></ListBucketResult>");
  };
  const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
    const bool isSecond = request.find("continuation-token=a%2Bb%2F%3D%26&") != std::string::npos;
    const bool isThird = request.find("continuation-token=last&") != std::string::npos;
    connection.send(isThird    ? page("pre-fix/f/3", "")
                    : isSecond ? page("pre fix/f/2", "last")
                               : page("pre fix/f/1", "a+b/=&amp;"));
  });
  const std::vector<PlaceObject> objects = placeAt(server).list("f");
  ASSERT_EQ(objects.size(), 2U);
  EXPECT_EQ(objects[0].name, "f/1");
  EXPECT_EQ(objects[1].name, "f/2");
  ASSERT_EQ(server.requests().size(), 3U);
  EXPECT_THAT(server.requests().front(), HasSubstr("prefix=pre%20fix%2Ff%2F"));
}

TEST_F(S3PlaceTest, AListingThatGoesOnAtTheSamePlaceForEverIsNone) {
  const ScriptedServer server(
      httpAnswer("200 OK",
                 "<ListBucketResult><IsTruncated>true</IsTruncated><NextContinuationToken>"
                 "on</NextContinuationToken></ListBucketResult>"));
  EXPECT_THAT(failureOf([&] { placeAt(server).list("f"); }), HasSubstr("no end"));
}

TEST_F(S3PlaceTest, WhatLiesInNoBucketIsNotAbsent) {
  const ScriptedServer server(errorAnswer("404 Not Found", "NoSuchBucket"));
  EXPECT_THAT(failureOf([&] {
                placeAt(server).get({{"f/1", Writing::contested, {}, 10}});
              }),
              HasSubstr("404 (NoSuchBucket)"));
}

TEST_F(S3PlaceTest, RefusalsAreNamedByTheServersCodeAndHaveTheKindThatTheyMean) {
  const auto write = [this](const std::string& answer) {
    const ScriptedServer server(answer);
    placeAt(server).put({{"f/1", "x"}});
  };
  const auto make = [this](const std::string& answer) {
    const ScriptedServer server(answer);
    placeAt(server).putNew("f/1", "x");
  };
  EXPECT_THROW(write(errorAnswer("403 Forbidden", "QuotaExceeded")), PlaceFullException);
  EXPECT_THROW(make(errorAnswer("403 Forbidden", "QuotaExceeded")), PlaceFullException);
  EXPECT_THROW(write(errorAnswer("403 Forbidden", "AccessDenied")), PlaceRefusedException);
  EXPECT_THROW(make(errorAnswer("402 Payment Required", "PaymentRequired")), PlaceRefusedException);
  EXPECT_THAT(failureOf([&] { make(errorAnswer("403 Forbidden", "SignatureDoesNotMatch")); }),
              AllOf(HasSubstr("make f/1"), HasSubstr("403 (SignatureDoesNotMatch)"), HasSubstr("password"),
                    Not(HasSubstr("in many words"))));
  EXPECT_THAT(failureOf([&] { write(errorAnswer("402 Payment Required", "PaymentRequired")); }),
              AllOf(HasSubstr("402 (PaymentRequired)"), HasSubstr("is paid")));
  EXPECT_THAT(failureOf([&] { write(errorAnswer("404 Not Found", "NoSuchBucket")); }),
              HasSubstr("404 (NoSuchBucket)"));
}

TEST_F(S3PlaceTest, AServerThatIsAskedToSlowDownGetsPausesAndThenItsAnswer) {
  std::atomic<int> count = 0;
  const ScriptedServer server([&](const std::string&, ScriptedConnection& connection) {
    connection.send(++count < 3 ? errorAnswer("503 Slow Down", "SlowDown") : httpAnswer("200 OK"));
  });
  placeAt(server).put({{"f/1", "x"}});
  EXPECT_EQ(count, 3);
  const ScriptedServer slow(errorAnswer("503 Slow Down", "SlowDown"));
  EXPECT_THAT(failureOf([&] {
                placeAt(slow).put({{"f/1", "x"}});
              }),
              AllOf(HasSubstr("503 (SlowDown)"), HasSubstr("again at the next sync")));
  const std::size_t before = slow.requests().size();
  EXPECT_EQ(placeAt(slow).putNew("f/1", "x"), Made::unknown);
  EXPECT_EQ(slow.requests().size(), before + 1) << "it may have been carried out";
}

TEST_F(S3PlaceTest, ASignatureOfTheWrongTimeIsMadeAnewOnce) {
  std::atomic<int> count = 0;
  const ScriptedServer server([&](const std::string& request, ScriptedConnection& connection) {
    ++count;
    const bool isTheirs = header(request, "x-amz-date") == "20261122T100000Z";
    connection.send(isTheirs ? httpAnswer("200 OK")
                             : httpAnswer("403 Forbidden", "<Error><Code>RequestTimeTooSkewed</Code></Error>",
                                          "Date: Sun, 22 Nov 2026 10:00:00 GMT\r\n"));
  });
  S3Place place = placeAt(server);
  EXPECT_EQ(place.putNew("f/1", "x"), Made::made);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(place.putNew("f/2", "x"), Made::made);
  EXPECT_EQ(count, 3) << "the server's clock is known by now";
  const ScriptedServer stubborn(httpAnswer("403 Forbidden",
                                           "<Error><Code>RequestTimeTooSkewed</Code></Error>",
                                           "Date: Sun, 22 Nov 2026 10:00:00 GMT\r\n"));
  EXPECT_THROW(placeAt(stubborn).putNew("f/1", "x"), PlaceRefusedException);
  EXPECT_EQ(stubborn.requests().size(), 2U);
}

}  // namespace
}  // namespace corvane::pelto
