#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "tests/pelto/place/ServerGrounds.h"

// A real server with TLS.

namespace corvane::pelto {
namespace {

class TlsPlaceTest : public testing::Test {
 protected:
  static std::string failureAt(const PlaceAddress& address) {
    try {
      makePlace(address, {"alice", SharedSecret("s3cret")}, after(60))
          ->get({{"f/1", Writing::alone, {}, 10}});
    } catch (const PlaceException& exception) {
      return exception.reason();
    }
    return "(none)";
  }

  std::unique_ptr<WebDavGround> ground = makeNginxTlsGround();
};

TEST_F(TlsPlaceTest, Http2IsSpokenWhereItIsOffered) {
  const std::unique_ptr<Place> place = ground->place(after(60), 0);
  EXPECT_EQ(place->putNew("f/1", "x"), Made::made);
  EXPECT_THAT(place->software(), testing::MatchesRegex("nginx/.*, HTTP/2"));
}

TEST_F(TlsPlaceTest, ACertificateOfAnotherAuthorityIsNotBelieved) {
  PlaceAddress address = ground->address();
  address.certificates.clear();
  EXPECT_THAT(failureAt(address), testing::HasSubstr("ca=FILE"));
}

TEST_F(TlsPlaceTest, ACertificateForAnotherNameIsNotBelieved) {
  PlaceAddress address = ground->address();
  address.origin.replace(address.origin.find("localhost"), 9, "127.0.0.1");
  EXPECT_THAT(failureAt(address), testing::HasSubstr("ca=FILE"));
}

TEST_F(TlsPlaceTest, AMissingFileOfAuthoritiesIsAnError) {
  PlaceAddress address = ground->address();
  address.certificates += "-missing";
  EXPECT_THAT(failureAt(address), testing::HasSubstr("ca=FILE"));
}

}  // namespace
}  // namespace corvane::pelto
