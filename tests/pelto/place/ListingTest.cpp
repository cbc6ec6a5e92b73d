#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/pelto/place/S3Listing.h"
#include "CorvaneSyncClient/platform/pelto/place/WebDavListing.h"
#include "CorvaneSyncClient/platform/pelto/place/XmlElements.h"

// Both listings in XML, and what the reader of XML refuses in either.

namespace corvane::pelto {
namespace {

std::string response(const std::string& href, const std::string& properties) {
  return "<D:response><D:href>" + href + "</D:href><D:propstat><D:prop>" + properties +
         "</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat></D:response>";
}

std::string multistatus(const std::string& responses) {
  return "<?xml version=\"1.0\"?><D:multistatus xmlns:D=\"DAV:\">" + responses + "</D:multistatus>";
}

const std::string kCollection = "<D:resourcetype><D:collection/></D:resourcetype>";
const std::string kFile =
    "<D:resourcetype/><D:getcontentlength>12</D:getcontentlength>"
    "<D:getlastmodified>Sun, 06 Nov 1994 08:49:37 GMT</D:getlastmodified>";

TEST(WebDavListingTest, MembersAreReadWithTheirProperties) {
  const std::vector<WebDavEntry> entries = readWebDavListing(multistatus(
      response("/dav/f/c/", kCollection) + response("/dav/f/c/1%2d0", kFile) +
      response("https://h.example.org/dav/f/c/2/", kCollection) + response("/dav/f/c/a%20b", kFile)));
  ASSERT_EQ(entries.size(), 4U);
  EXPECT_EQ(entries[0].name, "");
  EXPECT_TRUE(entries[0].isCollection);
  EXPECT_EQ(entries[1].name, "1-0");
  EXPECT_FALSE(entries[1].isCollection);
  EXPECT_EQ(entries[1].bytes, 12U);
  EXPECT_EQ(entries[1].date->seconds, 784111777 - kSecondsFrom1970To2001);
  EXPECT_EQ(entries[2].name, "2");
  EXPECT_TRUE(entries[2].isCollection);
  EXPECT_EQ(entries[3].name, "a b");
}

TEST(WebDavListingTest, TheCollectionMayComeLastAndItsMembersAnywhereBelowIt) {
  const std::vector<WebDavEntry> entries =
      readWebDavListing(multistatus(response("/f/c/1", kFile) + response("/f/c", kCollection)));
  EXPECT_EQ(entries[0].name, "1");
  EXPECT_EQ(entries[1].name, "");
}

TEST(WebDavListingTest, OtherAnswersAreRefused) {
  const std::string cases[] = {
      "",
      "rubbish",
      "<html><body>Log in</body></html>",
      "<multistatus/>",
      multistatus(response("/f/c/", kCollection) + response("/etc/passwd", kFile)),
      multistatus(response("/f/c/", kCollection) + response("/f/c/x/y", kFile)),
      multistatus(response("/f/c/", kCollection) + response("/f/c2", kFile)),
      multistatus(response("/f", "<D:getcontentlength>-1</D:getcontentlength>")),
      multistatus(response("/f", "<D:getcontentlength>99999999999999999999999</D:getcontentlength>")),
      multistatus(response("/f", kFile)).substr(0, 100),
  };
  for (const std::string& text : cases) EXPECT_THROW(readWebDavListing(text), XmlException) << text;
}

std::string bucket(const std::string& contents) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><ListBucketResult "
         "xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\"><Name>b</Name>" +
         contents + "</ListBucketResult>";
}

TEST(S3ListingTest, KeysAreReadWithTheirSizesAndDates) {
  const S3Listing listing = readS3Listing(
      bucket("<IsTruncated>true</IsTruncated><NextContinuationToken>a+/b==</"
             "NextContinuationToken><Contents><Key>p/f/1</Key>"
             "<LastModified>1994-11-06T08:49:37.123Z</LastModified><ETag>&quot;x&quot;</ETag><Size>12</Size>"
             "<Owner><ID>o</ID><DisplayName>Key</DisplayName></Owner></Contents><Contents><Key>p/f/2&amp;</"
             "Key><Size>0</Size>"
             "<LastModified>1994-11-06T08:49:37Z</LastModified></Contents>"
             "<CommonPrefixes><Prefix>p/f/x/</Prefix></CommonPrefixes>"));
  EXPECT_EQ(listing.next, "a+/b==");
  ASSERT_EQ(listing.objects.size(), 2U);
  EXPECT_EQ(listing.objects[0].name, "p/f/1");
  EXPECT_EQ(listing.objects[0].bytes, 12U);
  EXPECT_EQ(listing.objects[0].date.seconds, 784111777 - kSecondsFrom1970To2001);
  EXPECT_EQ(listing.objects[1].name, "p/f/2&");
  EXPECT_EQ(readS3Listing(bucket("<IsTruncated>false</IsTruncated>")).next, "");
}

TEST(S3ListingTest, OtherAnswersAreRefused) {
  const std::string cases[] = {
      "",
      "rubbish",
      "<Error><Code>AccessDenied</Code></Error>",
      bucket("<IsTruncated>true</IsTruncated>"),
      bucket("<Contents><Key>k</Key><Size>many</Size></Contents>"),
      bucket("<Contents><Key>k</Key><Size>-1</Size></Contents>"),
      bucket("<Contents><Key>k</Key><LastModified>yesterday</LastModified></Contents>"),
      bucket("").substr(0, 120),
  };
  for (const std::string& text : cases) EXPECT_THROW(readS3Listing(text), XmlException) << text;
}

TEST(S3ListingTest, TheCodeOfAnErrorIsRead) {
  EXPECT_EQ(readS3ErrorCode("<?xml version='1.0'?><Error><Code>NoSuchKey</Code><Key>x</Key></Error>"),
            "NoSuchKey");
  EXPECT_EQ(readS3ErrorCode("<Error><Message><Code>x</Code></Message></Error>"), "");
  EXPECT_EQ(readS3ErrorCode("<html>"), "");
  EXPECT_EQ(readS3ErrorCode(""), "");
}

TEST(XmlElementsTest, WhatBlowsUpIsRefused) {
  std::string deep;
  for (int i = 0; i < 40; ++i) deep += "<a>";
  const std::string cases[] = {
      "<!DOCTYPE a><a/>",
      "<!DOCTYPE a [<!ENTITY b \"x\"><!ENTITY c \"&b;&b;&b;\">]><a>&c;</a>",
      "<!DOCTYPE a SYSTEM \"file:///etc/passwd\"><a/>",
      "<a>&unknown;</a>",
      deep,
      "<a>" + std::string(10'000, 'x') + "</a>",
      "<a xmlns:x='y' x:b='1' x:b='2'/>",
      "<a/><b/>",
      std::string("<a>\0</a>", 8),
  };
  for (const std::string& text : cases)
    EXPECT_THROW(readXml(text, {[](const XmlPath&) {}, [](const XmlPath&, const std::string&) {}}),
                 XmlException)
        << text.substr(0, 100);
}

TEST(XmlElementsTest, WhatAHandlerRaisesComesThrough) {
  EXPECT_THROW(readXml("<a/>", {[](const XmlPath&) { throw XmlException("own"); },
                                [](const XmlPath&, const std::string&) {}}),
               XmlException);
}

}  // namespace
}  // namespace corvane::pelto
