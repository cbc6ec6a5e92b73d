#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"

namespace corvane::pelto {
namespace {

TEST(HttpTextTest, LoopbackIsKnownByItsTextAlone) {
  for (const char* host :
       {"127.0.0.1", "127.255.0.9", "::1", "[::1]", "localhost", "LocalHost", "b.localhost"})
    EXPECT_TRUE(isLoopbackHost(host)) << host;
  for (const char* host : {"", "10.0.0.1", "127.1", "0x7f000001", "[::ffff:127.0.0.1]",
                           "localhost.example.org", "notlocalhost", "127.0.0.1.example.org", "0.0.0.0"})
    EXPECT_FALSE(isLoopbackHost(host)) << host;
}

TEST(HttpTextTest, BytesArePercentEncodedAndComeBack) {
  EXPECT_EQ(percentEncoded("a/b c~%\xc3\xa4"), "a%2Fb%20c~%25%C3%A4");
  EXPECT_EQ(percentEncodedPath("/a/b c"), "/a/b%20c");
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_EQ(percentDecoded(percentEncoded(all)), all);
  EXPECT_EQ(percentDecoded("%"), "%");
  EXPECT_EQ(percentDecoded("%4"), "%4");
  EXPECT_EQ(percentDecoded("%zz%41"), "%zzA");
}

TEST(HttpTextTest, DatesOfHeadersAreRead) {
  EXPECT_EQ(dateFromHttp("Sun, 06 Nov 1994 08:49:37 GMT")->seconds, 784111777 - kSecondsFrom1970To2001);
  EXPECT_FALSE(dateFromHttp(""));
  EXPECT_FALSE(dateFromHttp("soon"));
  EXPECT_FALSE(dateFromHttp(std::string(100'000, '1')));
}

TEST(HttpTextTest, BasicAuthorizationIsBase64) {
  // RFC 7617, section 2.
  EXPECT_EQ(basicAuthorization("Aladdin", "open sesame"), "QWxhZGRpbjpvcGVuIHNlc2FtZQ==");
  EXPECT_EQ(basicAuthorization("test", "123\xc2\xa3"), "dGVzdDoxMjPCow==");
}

}  // namespace
}  // namespace corvane::pelto
