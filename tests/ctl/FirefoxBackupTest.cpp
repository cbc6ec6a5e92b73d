// Reading the backups of Firefox, compressed and not.

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

#include "tests/ctl/ImportOutline.h"
#include "tests/fakes/FakePlatform.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/browsers/FirefoxBackup.h"
#include "tools/loomerctl/browsers/MozLz4.h"

namespace corvane::loomerctl {
namespace {

using testing::HasSubstr;

class FirefoxBackupTest : public testing::Test {
 protected:
  FakePlatform platform;
};

class MozLz4Test : public testing::Test {
 protected:
  FakePlatform platform;
};

BrowserBookmarks readBackup(const std::string& json) {
  const JsonDocument document = parseJson(json, "backup");
  EXPECT_TRUE(isFirefoxBackup(document));
  return readFirefoxBackup(document, "backup");
}

std::string root(const std::string& guid, const std::string& name, const std::string& children) {
  return R"({"guid": ")" + guid + R"(", "title": "x", "type": "text/x-moz-place-container", "root": ")" +
         name + R"(", "dateAdded": 1, "children": [)" + children + "]}";
}

std::string backup(const std::string& roots) {
  return R"({"guid": "root________", "title": "", "root": "placesRoot", "type": "text/x-moz-place-container", "children": [)" +
         roots + "]}";
}

// In the menu.
std::string menuBackup(const std::string& entries) {
  return backup(root("menu________", "bookmarksMenuFolder", entries));
}

std::string backupRefusal(const std::string& json) {
  try {
    readBackup(json);
  } catch (const Refused& refused) {
    return refused.reason();
  }
  return "nothing";
}

constexpr const char* kBookmark = R"({"title": "B", "type": "text/x-moz-place", "uri": "http://b/"})";

TEST_F(FirefoxBackupTest, RootsThatHoldAnythingComeByWhatTheyAre) {
  const std::string file =
      backup(root("menu________", "bookmarksMenuFolder",
                  R"({"title": "News", "type": "text/x-moz-place-container", "children": [)" +
                      std::string(kBookmark) + "]}") +
             ", " + root("toolbar_____", "toolbarFolder", kBookmark) + ", " +
             root("unfiled_____", "unfiledBookmarksFolder",
                  R"({"type": "text/x-moz-place", "uri": "http://untitled/"})") +
             ", " + root("mobile______", "mobileFolder", kBookmark));
  EXPECT_EQ(outline(readBackup(file).nodes),
            "BookmarksMenu(News(B@http://b/)) BookmarksBar!(B@http://b/) \"Other "
            "Bookmarks\"(\"\"@http://untitled/) "
            "\"Mobile Bookmarks\"(B@http://b/)");
}

TEST_F(FirefoxBackupTest, EmptyRootsMakeNothing) {
  EXPECT_EQ(
      outline(readBackup(backup(root("toolbar_____", "toolbarFolder", "") + R"(, {"guid": "unfiled_____"})"))
                  .nodes),
      "");
}

TEST_F(FirefoxBackupTest, RootsOfEarlyVersionsGoByTheirNames) {
  const std::string file =
      R"({"title": "", "root": "placesRoot", "type": "text/x-moz-place-container", "children": [)" +
      root("4q5S", "toolbarFolder", kBookmark) + ", " +
      root("5r6T", "tagsFolder",
           R"({"title": "red", "children": [{}, {}]}, {"title": "blue", "children": [{}]}, {"title": "x"})") +
      "]}";
  const BrowserBookmarks read = readBackup(file);
  EXPECT_EQ(outline(read.nodes), "BookmarksBar!(B@http://b/)");
  EXPECT_EQ(leftOutOutline(read), "t(:red) t(:red) t(:blue) icons=0 dates=0");
}

TEST_F(FirefoxBackupTest, WhatTheTruthHasNoPlaceForIsKeptWithItsNode) {
  const std::string entries =
      R"({"title": "A", "type": "text/x-moz-place", "uri": "http://a/", "tags": "red, blue", "keyword": "k", "postData": "q=1",
          "charset": "UTF-8", "iconUri": "http://a/i", "dateAdded": 1700000000000000, "lastModified": 1700000000000001,
          "annos": [{"name": "bookmarkProperties/description", "value": "About A"}, {"name": "x/y", "value": 5}]},
         {"type": "text/x-moz-place-separator"},
         {"title": "F", "type": "text/x-moz-place-container", "annos": [{"name": "livemark/feedURI", "value": "http://f/"}],
          "children": [{"type": "text/x-moz-place-separator"}, {"title": "No address", "type": "text/x-moz-place"},
                       {"title": "Odd", "type": "text/x-moz-odd", "uri": "http://o/"}]})";
  const BrowserBookmarks read = readBackup(menuBackup(entries));
  EXPECT_EQ(outline(read.nodes), "BookmarksMenu(A@http://a/ F())");
  EXPECT_EQ(
      leftOutOutline(read),
      "t(A:red) t(A:blue) k(A:k) v(A:q=1) v(A:UTF-8) d(A:About A) v(A:x/y) s(BookmarksMenu:) "
      "v(F:livemark/feedURI) "
      "s(F:) e(F:/children/0/children/2/children/1) e(F:/children/0/children/2/children/2) icons=1 dates=1");
}

TEST_F(FirefoxBackupTest, FaultsAreRefusedWithPlaceAndCause) {
  const struct {
    std::string json;
    const char* reason;
  } rows[] = {
      {menuBackup("7"), "backup is damaged: what stands at \"/children/0/children/0\" is no object."},
      {menuBackup(R"({"type": "text/x-moz-place-container", "children": 5})"),
       "what stands at \"/children/0/children/0/children\" is no list."},
      {menuBackup(R"({"type": "text/x-moz-place", "uri": ["http://a/"]})"),
       "what stands at \"/children/0/children/0/uri\" is no text."},
      {backup(R"({"root": "tagsFolder", "children": {"a": 1}})"),
       "what stands at \"/children/0/children\" is no list."},
  };
  for (const auto& row : rows) EXPECT_THAT(backupRefusal(row.json), HasSubstr(row.reason));
}

// Bytes as a file of literals alone.
std::string stored(const std::string& contents, std::size_t declared) {
  std::string file("mozLz40\0", 8);
  for (int i = 0; i < 4; ++i) file += static_cast<char>(declared >> (8 * i));
  std::size_t rest = contents.size();
  file += static_cast<char>(std::min<std::size_t>(rest, 15) << 4);
  if (rest >= 15) {
    for (rest -= 15; rest >= 255; rest -= 255) file += '\xFF';
    file += static_cast<char>(rest);
  }
  return file + contents;
}

std::string stored(const std::string& contents) { return stored(contents, contents.size()); }

std::string lz4Refusal(const std::string& bytes) {
  try {
    mozLz4Contents(bytes, "file");
  } catch (const Refused& refused) {
    return refused.reason();
  }
  return "nothing";
}

TEST_F(MozLz4Test, LiteralsOfAnyLengthComeOut) {
  for (const std::size_t size : {0, 1, 14, 15, 16, 269, 270, 271, 5'000}) {
    const std::string contents(size, 'x');
    EXPECT_EQ(mozLz4Contents(stored(contents), "file"), contents) << size;
  }
}

TEST_F(MozLz4Test, WhatRepeatsMayReachIntoItself) {
  // "ab", then 2 back for 4 + 15 + 255 + 3 bytes; "ab", then 5 back for 4; "!".
  const std::string block(
      "\x2F"
      "ab\x02\x00\xFF\x03"
      "\x20"
      "cd\x05\x00"
      "\x10!",
      14);
  std::string contents = "ab";
  for (int i = 0; i < 277; ++i) contents += contents[contents.size() - 2];
  contents += "cd";
  for (int i = 0; i < 4; ++i) contents += contents[contents.size() - 5];
  contents += '!';
  std::string file = stored("", contents.size());
  file.replace(12, 1, block);
  EXPECT_EQ(mozLz4Contents(file, "file"), contents);
}

TEST_F(MozLz4Test, FaultsAreRefusedWithTheirOffset) {
  const std::string whole = stored("hello");
  for (std::size_t size = 8; size < whole.size(); ++size) {
    EXPECT_THAT(lz4Refusal(whole.substr(0, size)), HasSubstr("file is damaged: ")) << size;
  }
  EXPECT_THAT(lz4Refusal(whole.substr(0, 15)),
              HasSubstr("it ends in the middle of what is compressed, at offset 13."));
  EXPECT_THAT(lz4Refusal(stored("hello", 4)),
              HasSubstr("by offset 13, there is another size in it than it says."));
  EXPECT_THAT(lz4Refusal(stored("hello", 6)),
              HasSubstr("by offset 18, there is another size in it than it says."));
  EXPECT_THAT(lz4Refusal(stored("hello", 0xFFFFFFFF)), HasSubstr("by offset 12, there is another size"));
  std::string before = stored("", 9);
  before.replace(12, 1,
                 std::string("\x10"
                             "a\x02\x00\x00",
                             5));
  EXPECT_THAT(lz4Refusal(before), HasSubstr("what is compressed refers to nothing at offset 16."));
}

}  // namespace
}  // namespace corvane::loomerctl
