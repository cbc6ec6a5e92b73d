// Reading the bookmarks of Chromium's profile.

#include <gmock/gmock.h>

#include <string>

#include "tests/ctl/ImportOutline.h"
#include "tests/fakes/FakePlatform.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/browsers/ChromiumBookmarks.h"

namespace corvane::loomerctl {
namespace {

using testing::HasSubstr;

class ChromiumBookmarksTest : public testing::Test {
 protected:
  FakePlatform platform;
};

BrowserBookmarks readChromium(const std::string& json) {
  return readChromiumBookmarks(parseJson(json, "Bookmarks"), "Bookmarks");
}

// A file with these entries in the bar, and something else in the other roots.
std::string chromiumFile(const std::string& bar, const std::string& rest = "") {
  return R"({"checksum": "0", "roots": {"bookmark_bar": {"children": [)" + bar +
         R"(], "id": "1", "name": "Lesezeichenleiste", "type": "folder"})" + rest + R"(}, "version": 1})";
}

std::string chromiumRefusal(const std::string& json) {
  try {
    readChromium(json);
  } catch (const Refused& refused) {
    return refused.reason();
  }
  return "nothing";
}

// In the manner of the browser: members by name, so that a folder's contents come before its title.
constexpr const char* kChromiumFile = R"json({
   "checksum": "d41d8cd98f00b204e9800998ecf8427e",
   "roots": {
      "bookmark_bar": {
         "children": [ {
            "children": [ {
               "date_added": "13379999999000000",
               "date_last_used": "0",
               "guid": "2a3b",
               "id": "6",
               "meta_info": {
                  "note": "x",
                  "power_bookmark_meta": ""
               },
               "name": "Caf\u00e9 \ud83d\ude00 \"q\"",
               "type": "url",
               "url": "http://d/"
            }, {
               "date_added": "0",
               "id": "7",
               "name": "",
               "type": "url",
               "url": "javascript:void(0)"
            } ],
            "date_added": "13379999998000000",
            "date_modified": "13379999999000000",
            "id": "5",
            "name": "News",
            "type": "folder"
         }, {
            "children": [  ],
            "id": "8",
            "name": "Empty",
            "type": "folder"
         } ],
         "date_added": "13379999990000000",
         "id": "1",
         "name": "Bookmarks bar",
         "type": "folder"
      },
      "other": {
         "children": [ {
            "id": "9",
            "name": "Zoo",
            "type": "url",
            "url": "http://z/"
         } ],
         "id": "2",
         "name": "Other bookmarks",
         "type": "folder"
      },
      "synced": {
         "children": [  ],
         "id": "3",
         "name": "Mobile bookmarks",
         "type": "folder"
      }
   },
   "sync_metadata": "AAAA",
   "version": 1
}
)json";

TEST_F(ChromiumBookmarksTest, RootsThatHoldAnythingComeByWhatTheyAre) {
  const BrowserBookmarks file = readChromium(kChromiumFile);
  EXPECT_EQ(
      outline(file.nodes),
      "BookmarksBar!(News(\"Caf\xC3\xA9 \xF0\x9F\x98\x80 \\\"q\\\"\"@http://d/ \"\"@\"javascript:void(0)\") "
      "Empty()) \"Other Bookmarks\"(Zoo@http://z/)");
  EXPECT_EQ(leftOutOutline(file), "v(Caf\xC3\xA9 \xF0\x9F\x98\x80 \"q\":meta_info/note) icons=0 dates=2");
}

TEST_F(ChromiumBookmarksTest, MobileBookmarksHaveAFolderOfTheirOwn) {
  const std::string file =
      chromiumFile("", R"(, "synced": {"children": [{"type": "url", "url": "http://m/", "name": "M"}]})");
  EXPECT_EQ(outline(readChromium(file).nodes), "\"Mobile Bookmarks\"(M@http://m/)");
}

TEST_F(ChromiumBookmarksTest, EntriesOfOtherKindsAreLeftOutByTheirPlace) {
  const BrowserBookmarks file = readChromium(chromiumFile(
      R"({"type": "url", "name": "No address"}, {"type": "folder", "name": "F", "children": [{"type": "gap"}]})",
      R"(, "trash": {"children": [{"type": "url", "url": "http://gone/"}]}, "note": "x")"));
  EXPECT_EQ(outline(file.nodes), "BookmarksBar!(F())");
  EXPECT_EQ(leftOutOutline(file),
            "e(BookmarksBar:/roots/bookmark_bar/children/0) e(F:/roots/bookmark_bar/children/1/children/0) "
            "e(:/roots/trash) icons=0 dates=0");
}

TEST_F(ChromiumBookmarksTest, HalfOfASurrogatePairAndAZeroBecomeTheReplacementCharacter) {
  const BrowserBookmarks file = readChromium(chromiumFile(
      R"({"type": "url", "url": "http://a/", "name": "cut \ud83d \\ud83d \ude00\ud83d\u0000\ud83d\ude00"})"));
  EXPECT_EQ(file.nodes.back().title,
            "cut \xEF\xBF\xBD \\ud83d \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

struct ChromiumFault {
  std::string json;
  const char* reason;
};

TEST_F(ChromiumBookmarksTest, FaultsAreRefusedWithPlaceAndCause) {
  const ChromiumFault rows[] = {
      {chromiumFile("").substr(0, 60), "Bookmarks is damaged: it is no JSON at offset 60, line 1: "},
      {"{\n\"roots\": {},,}", "Bookmarks is damaged: it is no JSON at offset 14, line 2: "},
      {"{\"roots\": {\n\n}, \"version\": 1}\x80", "offset 29, line 3: "},
      {std::string("{\"roots\": {}, \"version\": 1}\0\0", 29),
       "at offset 27, line 1: There is a byte of zero."},
      {chromiumFile("{\"type\": \"url\", \"name\": \"\xFF\"}"), "Invalid encoding in string."},
      {std::string(60'000, '['), "at offset 50000, line 1: More brackets than 50,000 stand in one another."},
      {R"({"roots": {}, "version": 2})",
       "written in a form that is not known: what stands at \"/version\" is not 1."},
      {R"({"roots": {}})", "what stands at \"/version\" is not 1."},
      {chromiumFile("5"),
       "Bookmarks is damaged: what stands at \"/roots/bookmark_bar/children/0\" is no object."},
      {chromiumFile(R"({"type": "folder", "children": {}})"),
       "what stands at \"/roots/bookmark_bar/children/0/children\" is no list."},
      {chromiumFile(R"({"type": "folder", "children": [{"type": "url", "name": 5}]})"),
       "what stands at \"/roots/bookmark_bar/children/0/children/0/name\" is no text."},
      {chromiumFile("", R"(, "other": [])"), "what stands at \"/roots/other\" is no object."},
  };
  for (const ChromiumFault& row : rows) EXPECT_THAT(chromiumRefusal(row.json), HasSubstr(row.reason));
}

TEST_F(ChromiumBookmarksTest, EveryBeginningOfAFileIsRefusedOrRead) {
  const std::string whole = kChromiumFile;
  for (std::size_t size = 0; size + 2 < whole.size(); ++size) {
    EXPECT_THAT(chromiumRefusal(whole.substr(0, size)), HasSubstr("it is no JSON at offset")) << size;
  }
}

TEST_F(ChromiumBookmarksTest, DeepFoldersNeedNoStack) {
  std::string bar;
  std::string end;
  for (int i = 0; i < 10'000; ++i) {
    bar += R"({"type": "folder", "name": "F", "children": [)";
    end += "]}";
  }
  EXPECT_EQ(readChromium(chromiumFile(bar + end)).nodes.size(), 10'001u);
}

}  // namespace
}  // namespace corvane::loomerctl
