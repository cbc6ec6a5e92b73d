// Reading places.sqlite of Firefox: files as SQLite writes them, and trees that no browser makes.

#include <gmock/gmock.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "tests/ctl/CtlFixture.h"
#include "tests/ctl/ImportOutline.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/browsers/DatabaseSnapshot.h"
#include "tools/loomerctl/browsers/PlacesDatabase.h"

namespace corvane::loomerctl {
namespace {

using testing::HasSubstr;

constexpr const char* kPlacesSchema =
    "CREATE TABLE moz_places(id INTEGER PRIMARY KEY, url LONGVARCHAR, title LONGVARCHAR);"
    "CREATE TABLE moz_bookmarks(id INTEGER PRIMARY KEY, type INTEGER, fk INTEGER DEFAULT NULL, parent "
    "INTEGER, "
    "position INTEGER, title LONGVARCHAR, dateAdded INTEGER, lastModified INTEGER, guid TEXT);"
    "CREATE TABLE moz_keywords(id INTEGER PRIMARY KEY, keyword TEXT UNIQUE, place_id INTEGER, post_data "
    "TEXT);"
    "CREATE TABLE moz_anno_attributes(id INTEGER PRIMARY KEY, name VARCHAR(32));"
    "CREATE TABLE moz_items_annos(id INTEGER PRIMARY KEY, item_id INTEGER, anno_attribute_id INTEGER, "
    "content LONGVARCHAR);"
    "INSERT INTO moz_bookmarks(id, type, parent, position, title, guid) VALUES (1, 2, 0, 0, '', "
    "'root________'),"
    "(2, 2, 1, 0, 'menu', 'menu________'), (3, 2, 1, 1, 'toolbar', 'toolbar_____'), (4, 2, 1, 2, 'tags', "
    "'tags________'),"
    "(5, 2, 1, 3, 'unfiled', 'unfiled_____'), (6, 2, 1, 4, 'mobile', 'mobile______');";

constexpr const char* kPlacesRows =
    "INSERT INTO moz_places(id, url) VALUES (1, 'http://d/'), (2, 'http://z/'), (3, 'http://gone/');"
    "INSERT INTO moz_bookmarks(id, type, fk, parent, position, title, dateAdded, guid) VALUES"
    "(10, 2, NULL, 3, 1, 'News', 5, 'a'), (11, 1, 1, 10, 0, 'Daily', 5, 'b'), (12, 3, NULL, 10, 1, NULL, 5, "
    "'c'),"
    "(13, 1, 2, 3, 0, NULL, 0, 'd'), (14, 1, 1, 5, 0, 'Again', NULL, 'e'), (15, 1, 99, 2, 0, 'Nowhere', 0, "
    "'f'),"
    "(20, 2, NULL, 4, 0, 'red', 5, 'g'), (21, 1, 1, 20, 0, NULL, 5, 'h'), (22, 1, 3, 20, 1, NULL, 5, 'i');"
    "INSERT INTO moz_keywords(keyword, place_id, post_data) VALUES ('z', 2, 'q=%s');"
    "INSERT INTO moz_anno_attributes VALUES (1, 'bookmarkProperties/description'), (2, 'x/y');"
    "INSERT INTO moz_items_annos(item_id, anno_attribute_id, content) VALUES (11, 1, 'About'), (10, 2, '1');";

constexpr const char* kPlacesOutline =
    "BookmarksMenu() BookmarksBar!(\"\"@http://z/ News(Daily@http://d/)) \"Other "
    "Bookmarks\"(Again@http://d/)";
constexpr const char* kPlacesLeftOut =
    "e(BookmarksMenu:moz_bookmarks 15) s(News:) t(Again:red) t(Daily:red) t(:red) k(:z) v(:q=%s) "
    "d(Daily:About) v(News:x/y) "
    "icons=0 dates=2";

struct CloseConnection {
  void operator()(sqlite3* connection) const { sqlite3_close(connection); }
};
using Connection = std::unique_ptr<sqlite3, CloseConnection>;

Connection openConnection(const std::string& path) {
  sqlite3* connection = nullptr;
  EXPECT_EQ(sqlite3_open(path.c_str(), &connection), SQLITE_OK);
  return Connection(connection);
}

void execute(const Connection& connection, const std::string& sql) {
  ASSERT_EQ(sqlite3_exec(connection.get(), sql.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
      << sqlite3_errmsg(connection.get());
}

std::string bytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A program that has the database open in the manner of Firefox, and nothing of it in the file itself but the
// schema.
class PlacesFileTest : public CtlTest {
 protected:
  PlacesFileTest() {
    useEmptyHome();
    path = profile + "/places.sqlite";
    std::filesystem::create_directory(profile);
    browser = openConnection(path);
    execute(browser,
            std::string("PRAGMA page_size=1024; PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;") +
                kPlacesSchema);
    execute(browser, "PRAGMA wal_checkpoint(TRUNCATE)");
  }

  BrowserBookmarks read() { return treeOfPlaces(readPlaces(databaseSnapshot(path), path)); }
  std::string refusal() {
    try {
      read();
    } catch (const Refused& refused) {
      return refused.reason();
    }
    return "nothing";
  }
  std::vector<std::string> filesInProfile() const {
    std::vector<std::string> names;
    for (const auto& each : std::filesystem::directory_iterator(profile))
      names.push_back(each.path().filename());
    std::sort(names.begin(), names.end());
    return names;
  }

  std::string profile = platform.directory / "profile";
  std::string path;
  Connection browser;
};

TEST_F(PlacesFileTest, WhatStandsInTheLogAloneIsRead) {
  execute(browser, kPlacesRows);
  EXPECT_EQ(outline(read().nodes), kPlacesOutline);
  EXPECT_EQ(leftOutOutline(read()), kPlacesLeftOut);
}

TEST_F(PlacesFileTest, WhatStandsInTheFileAloneIsRead) {
  execute(browser, kPlacesRows);
  browser.reset();
  ASSERT_EQ(filesInProfile(), std::vector<std::string>{"places.sqlite"});
  EXPECT_EQ(outline(read().nodes), kPlacesOutline);
}

TEST_F(PlacesFileTest, LogThatWasBegunAnewCountsForWhatItsNewBeginningSays) {
  execute(browser, kPlacesRows);
  execute(browser, "PRAGMA wal_checkpoint(RESTART)");
  execute(browser, "UPDATE moz_bookmarks SET title = 'Weekly' WHERE id = 11");
  EXPECT_THAT(outline(read().nodes), HasSubstr("News(Weekly@http://d/)"));
}

TEST_F(PlacesFileTest, TransactionThatHasNotEndedDoesNotCount) {
  execute(browser, kPlacesRows);
  const auto before = std::filesystem::file_size(path + "-wal");
  execute(browser,
          "PRAGMA cache_size=1; BEGIN; INSERT INTO moz_bookmarks(type, parent, position, title, guid) "
          "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) SELECT 2, 2, i, "
          "'F', 'x' FROM n");
  EXPECT_GT(std::filesystem::file_size(path + "-wal"), before);  // it stands in the log already
  EXPECT_EQ(outline(read().nodes), kPlacesOutline);
}

TEST_F(PlacesFileTest, LogMayMakeTheDatabaseShorter) {
  execute(
      browser,
      "CREATE TABLE much(x); INSERT INTO much VALUES (zeroblob(200000)); PRAGMA wal_checkpoint(TRUNCATE)");
  execute(browser, "DROP TABLE much; VACUUM");
  execute(browser, kPlacesRows);
  EXPECT_EQ(outline(read().nodes), kPlacesOutline);
}

TEST_F(PlacesFileTest, EveryCutOfTheLogIsAMomentOfTheDatabase) {
  execute(
      browser,
      "INSERT INTO moz_bookmarks(id, type, parent, position, title, guid) VALUES (10, 2, 2, 0, 'One', 'x')");
  execute(browser, "UPDATE moz_bookmarks SET title = 'Two' WHERE id = 10");
  const std::string database = bytesOf(path);
  const std::string log = bytesOf(path + "-wal");
  std::string seen;
  for (std::size_t end = 0; end < log.size() + 41; end += 41) {
    const std::size_t size = std::min(end, log.size());
    const std::string moment = withWriteAheadLog(database, log.substr(0, size), path);
    const std::string now = outline(treeOfPlaces(readPlaces(moment, path)).nodes);
    if (now != seen.substr(seen.rfind('|') + 1)) seen += '|' + now;
  }
  EXPECT_EQ(seen, "|BookmarksMenu(One())|BookmarksMenu(Two())");
}

TEST_F(PlacesFileTest, ImportLeavesTheProfileAsItIsAndTheBrowserUndisturbed) {
  execute(browser, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE");
  execute(browser, kPlacesRows);
  execute(browser, "COMMIT");  // the lock stays
  const auto files = filesInProfile();
  const std::string database = bytesOf(path);
  const std::string log = bytesOf(path + "-wal");
  ASSERT_EQ(chmod(path.c_str(), 0400), 0);
  ASSERT_EQ(chmod(profile.c_str(), 0500), 0);
  const Run run = ctl({"import", path});
  ASSERT_EQ(chmod(profile.c_str(), 0700), 0);
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("Added 3 bookmarks and 4 folders as session"));
  EXPECT_EQ(filesInProfile(), files);
  EXPECT_EQ(bytesOf(path), database);
  EXPECT_EQ(bytesOf(path + "-wal"), log);
  execute(browser, "UPDATE moz_bookmarks SET title = 'still mine'");
}

TEST_F(PlacesFileTest, LinkToTheFileFindsTheLogBesideIt) {
  execute(browser, kPlacesRows);
  const std::string link = platform.directory / "link";
  std::filesystem::create_symlink(path, link);
  EXPECT_THAT(ctl({"import", link}).out, HasSubstr("Added 3 bookmarks and 4 folders"));
}

TEST_F(PlacesFileTest, StandardInputHasNoLogBesideIt) {
  execute(browser, kPlacesRows);
  execute(browser, "PRAGMA wal_checkpoint(TRUNCATE); UPDATE moz_bookmarks SET title = 'Later' WHERE id = 11");
  EXPECT_EQ(ctl({"import", "-"}, bytesOf(path)).status, 0);
  EXPECT_EQ(json({"tree"}, "[r['title'] for r in d if r.get('url') == 'http://d/']"), "['Daily', 'Again']");
}

TEST_F(PlacesFileTest, DatabaseInTheMiddleOfAChangeIsRefused) {
  execute(browser, kPlacesRows);
  execute(browser, "PRAGMA journal_mode=DELETE; PRAGMA cache_size=1; CREATE TABLE much(x); BEGIN");
  for (int i = 0; i < 50; ++i) execute(browser, "INSERT INTO much VALUES (zeroblob(2000))");
  ASSERT_NE(bytesOf(path + "-journal").front(), '\0');  // the file itself is changed already
  EXPECT_THAT(refusal(), HasSubstr(path + " is in the middle of a change, by the journal beside it."));
}

TEST_F(PlacesFileTest, DatabasesOfOtherKindsAreRefusedWithTheirCause) {
  execute(browser, "ALTER TABLE moz_keywords RENAME TO moz_words");
  EXPECT_THAT(refusal(),
              HasSubstr(path + " cannot be read as places.sqlite of Firefox: no such table: moz_keywords."));
  execute(browser, "CREATE VIEW moz_keywords AS SELECT 1 AS place_id, 'k' AS keyword, '' AS post_data");
  EXPECT_THAT(refusal(), HasSubstr("access to view \"moz_keywords\" prohibited."));
}

TEST_F(PlacesFileTest, DamagedDatabaseIsRefusedOrReadAsFarAsItIsSound) {
  execute(browser, kPlacesRows);
  const std::string database = withWriteAheadLog(bytesOf(path), bytesOf(path + "-wal"), path);
  int refused = 0;
  for (std::size_t at = 0; at < database.size(); at += 128) {
    std::string damaged = database;
    damaged.replace(at, 64, std::min<std::size_t>(64, database.size() - at), '\xA5');
    try {
      EXPECT_LE(treeOfPlaces(readPlaces(damaged, path)).nodes.size(), 20u) << at;
    } catch (const Refused& reason) {
      EXPECT_THAT(reason.reason(), HasSubstr(path + " cannot be read as places.sqlite of Firefox: ")) << at;
      ++refused;
    }
  }
  EXPECT_GT(refused, 10);
}

PlacesRow folderRow(std::int64_t id, std::int64_t parent, const std::string& title,
                    const std::string& guid = "") {
  PlacesRow row;
  row.id = id;
  row.parent = parent;
  row.position = id;
  row.type = 2;
  row.title = title;
  row.guid = guid;
  return row;
}

PlacesRow bookmarkRow(std::int64_t id, std::int64_t parent, const std::string& title) {
  PlacesRow row = folderRow(id, parent, title);
  row.type = 1;
  row.url = "http://" + title + '/';
  return row;
}

std::vector<PlacesRow> withTop(std::vector<PlacesRow> rows) {
  rows.push_back(folderRow(1, 0, "", "root________"));
  rows.push_back(folderRow(2, 1, "menu", "menu________"));
  return rows;
}

TEST(PlacesTreeTest, RowsThatNoFolderLeadsToAreStraysWithAllThatLiesInThem) {
  const struct {
    const char* phrase;
    std::vector<PlacesRow> rows;
    const char* outline;
    std::size_t strays;
  } rows[] = {
      {"none", {bookmarkRow(10, 2, "a")}, "BookmarksMenu(a@http://a/)", 0},
      {"a parent that is missing",
       {folderRow(10, 77, "F"), bookmarkRow(11, 10, "a"), bookmarkRow(12, 77, "b")},
       "\"Other Bookmarks\"(F(a@http://a/) b@http://b/)",
       2},
      {"a parent that is a bookmark",
       {bookmarkRow(10, 2, "a"), bookmarkRow(11, 10, "b")},
       "BookmarksMenu(a@http://a/) \"Other Bookmarks\"(b@http://b/)",
       1},
      {"a folder in itself",
       {folderRow(10, 10, "F"), bookmarkRow(11, 10, "a")},
       "\"Other Bookmarks\"(F(a@http://a/))",
       1},
      {"a cycle, and a way into it",
       {folderRow(10, 12, "F"), folderRow(11, 10, "G"), folderRow(12, 11, "H"), folderRow(13, 10, "I"),
        bookmarkRow(14, 13, "a")},
       "\"Other Bookmarks\"(G(H(F(I(a@http://a/)))))",
       1},
      {"the root in the end",
       {folderRow(10, 1, "Beside the roots"), bookmarkRow(11, 10, "a")},
       "\"Beside the roots\"(a@http://a/)",
       0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.phrase);
    const BrowserBookmarks read = treeOfPlaces({withTop(row.rows), {}, {}});
    EXPECT_EQ(outline(read.nodes), row.outline);
    EXPECT_EQ(read.strays, row.strays);
  }
}

TEST(PlacesTreeTest, RowsWithoutTheTopOfAllAreNotLost) {
  const BrowserBookmarks read = treeOfPlaces({{folderRow(3, 1, "toolbar"), bookmarkRow(4, 3, "a")}, {}, {}});
  EXPECT_EQ(outline(read.nodes), "\"Other Bookmarks\"(toolbar(a@http://a/))");
}

}  // namespace
}  // namespace corvane::loomerctl
