#include <gtest/gtest.h>

#include "tools/corvane-hub/HubConfiguration.h"
#include "tools/corvane-hub/HubFailure.h"

namespace corvane::hubserver {

namespace {

TEST(HubConfiguration, AFileSaysWhatIsSet) {
  const HubConfiguration configuration = parsedConfiguration(
      "# a comment\n\n data = /srv/hub \nlisten=127.0.0.1:1\r\nlisten = [::]:443\nlisten = unix:/run/x\n"
      "certificate = /a b.crt\nkey = /b.key\nquota = 500 MiB",
      "file");
  EXPECT_EQ(configuration.data, "/srv/hub");
  ASSERT_EQ(configuration.listen.size(), 3u);
  EXPECT_EQ(configuration.listen[0].text(), "127.0.0.1:1");
  EXPECT_EQ(configuration.listen[1].text(), "[::]:443");
  EXPECT_EQ(configuration.listen[2].text(), "unix:/run/x");
  EXPECT_EQ(configuration.certificate, "/a b.crt");
  EXPECT_EQ(configuration.quota, std::uint64_t{500} << 20);
}

TEST(HubConfiguration, AnEmptyFileHasTheDefaults) {
  const HubConfiguration configuration = parsedConfiguration("", "file");
  EXPECT_EQ(configuration.data, "/var/lib/corvane-hub");
  EXPECT_EQ(configuration.quota, std::uint64_t{1} << 30);
  EXPECT_TRUE(configuration.listen.empty());
}

TEST(HubConfiguration, WhatItDoesNotSayRightIsRefusedWithItsPlace) {
  const std::pair<const char*, const char*> rows[] = {
      {"data\n", "file:1: a line is KEY = VALUE, or a comment after \"#\""},
      {"\n\ndata =\n", "file:3: \"data\" has no value"},
      {"data = /a\ndata = /b", "file:2: \"data\" stands twice"},
      {"Data = /a", "file:1: there is no \"Data\"; there are data, listen, certificate, key and quota"},
      {"data = srv", "file:1: \"data\" is a path that begins with \"/\""},
      {"certificate = /a", "file: \"certificate\" and \"key\" go together"},
      {"listen = 0.0.0.0:80",
       "file: \"listen = 0.0.0.0:80\" would carry tokens unencrypted: give a certificate and a key, or "
       "listen on "
       "127.0.0.1, [::1] or a Unix socket, with a proxy in front that does TLS"},
  };
  for (const auto& [text, reason] : rows) {
    try {
      parsedConfiguration(text, "file");
      ADD_FAILURE() << text;
    } catch (const HubFailure& failure) {
      EXPECT_EQ(failure.reason(), reason);
    }
  }
  for (const char* address :
       {"8420", "localhost:1", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "::1:80",
        "[127.0.0.1]:80", "[::1:80", "unix:", "unix:run/x", ":80"}) {
    EXPECT_THROW(parsedConfiguration(std::string("listen = ") + address, "file"), HubFailure) << address;
  }
  EXPECT_THROW(parsedConfiguration("listen = unix:/" + std::string(107, 'x'), "file"), HubFailure);
}

TEST(HubConfiguration, ASizeIsANumberOfBytesOrOfUnits) {
  EXPECT_EQ(parsedSize("1"), 1u);
  EXPECT_EQ(parsedSize("3KiB"), 3072u);
  EXPECT_EQ(parsedSize("2 TiB"), std::uint64_t{2} << 40);
  EXPECT_EQ(parsedSize("1048576 TiB"), std::uint64_t{1} << 60);
  for (const char* text : {"", "0", "KiB", "-1", "1.5 GiB", "1 GB", "1 gib", "0x10", "1048577 TiB",
                           "99999999999999999999", " 1"}) {
    EXPECT_FALSE(parsedSize(text)) << text;
  }
  EXPECT_EQ(sizeText(0), "0 bytes");
  EXPECT_EQ(sizeText(1024), "1 KiB");
  EXPECT_EQ(sizeText(1536), "1.5 KiB");
  EXPECT_EQ(sizeText(std::uint64_t{5} << 50), "5120 TiB");
}

}  // namespace

}  // namespace corvane::hubserver
