// `report`: what the page holds. How browsers show it is looked at in tests/browsers.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include "CorvaneSyncClient/platform/loomer/store/Database.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"
#include "tests/ctl/CtlFixture.h"
#include "tests/fakes/FakePlatform.h"
#include "tools/loomerctl/report/SessionChart.h"
#include "tools/loomerctl/report/Tidying.h"

namespace corvane {
namespace {

using loomerctl::asHtml;
using loomerctl::bookmarkHtml;
using loomerctl::isLinked;
using loomerctl::ReportEntry;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class ReportTest : public CtlTest {
 protected:
  std::string page() {
    const Run run = ctl({"report", "-"});
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out;
  }
};

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

TEST_F(ReportTest, FileIsItsOwnersAloneAndHoldsWhatStandardOutputGets) {
  seed();
  const std::string path = platform.directory / "report.html";
  const Run run = ctl({"report", path});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, AllOf(HasSubstr("a report on 4 bookmarks"), HasSubstr(path)));
  EXPECT_EQ(modeOf(path), 0600u);
  EXPECT_THAT(contents(path), AllOf(HasSubstr(">Daily</a>"), HasSubstr("</html>\n")));
  ASSERT_EQ(chmod(path.c_str(), 0640), 0);
  EXPECT_EQ(ctl({"report", path}).status, 0);
  EXPECT_EQ(modeOf(path), 0640u) << "who opened it to others meant it";
}

TEST_F(ReportTest, PageThatCannotBeWrittenIsRefused) {
  seed();
  const Run run = ctl({"report", "/nowhere/at/all.html"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err,
              AllOf(HasSubstr("Cannot write /nowhere/at/all.html"), HasSubstr("No such file or directory")));
}

TEST_F(ReportTest, TreeStandsInItsOrderWithFoldersThatFold) {
  seed();
  const std::string html = page();
  EXPECT_THAT(html,
              HasSubstr("<noscript class=\"bookmarks\">\n<ul class=\"tree\">\n"
                        "<li><details open><summary><b>BookmarksBar</b> <small>2</small></summary><ul>\n"
                        "<li><details><summary><b>News</b> <small>2</small></summary><ul>\n"
                        "<li><a href=\"http://d/\">Daily</a></li>\n"
                        "<li><a href=\"http://w/\">Weekly</a></li>\n"
                        "</ul></details></li>\n"
                        "<li><a href=\"http://s/\">Shop</a></li>\n"
                        "</ul></details></li>\n"
                        "<li><a href=\"http://z/\">Zoo</a></li>\n"
                        "</ul>\n</noscript>\n"));
}

TEST_F(ReportTest, FoldersDeeperThanBrowsersTakeStandInOneListWithTheirDepth) {
  a = makeClient("a");
  std::string folder;
  for (int i = 0; i < 60; ++i) folder = a->addFolder(folder, "F" + std::to_string(i));
  a->addBookmark(folder, "Bottom", "http://bottom/");
  a->addBookmark("", "Top", "http://top/");
  ASSERT_EQ(a->sync(), "");
  const std::string html = page();
  std::size_t lists = 0;
  for (std::size_t at = 0; (at = html.find("<summary><b>F", at)) != std::string::npos; ++at) ++lists;
  EXPECT_EQ(lists, 40u);
  EXPECT_THAT(html, AllOf(HasSubstr("<li><b>F40</b> <small>1</small></li>"),
                          HasSubstr("<li><small>[59]</small> <b>F59</b>"),
                          HasSubstr("<li><small>[60]</small> <a href=\"http://bottom/\""),
                          HasSubstr("</ul></details></li>\n<li><a href=\"http://top/\"")));
}

TEST_F(ReportTest, ChangesStandWithWhatWasBeforeAndAfter) {
  seed();
  a->rename(a->find("Daily"), "Daily <2>");
  a->remove(a->find("Shop"));
  a->addBookmark("", "New", "javascript:alert(1)");
  ASSERT_EQ(a->sync(), "");
  EXPECT_THAT(
      page(),
      AllOf(
          HasSubstr("<dt>title</dt><dd><del>&quot;Daily&quot;</del> <ins>&quot;Daily &lt;2&gt;&quot;</ins>"),
          HasSubstr("<span class=\"kind\">deleted</span> <a href=\"http://s/\""),
          HasSubstr("<span class=\"kind\">added</span> <b>New</b> <code>javascript:alert(1)</code> "
                    "<small>in the root</small>")));
}

TEST_F(ReportTest, SessionOfManyChangesIsFoldedAndCounted) {
  a = makeClient("a");
  for (int i = 0; i < 70; ++i) a->addBookmark("", "B" + std::to_string(i), "http://b/" + std::to_string(i));
  ASSERT_EQ(a->sync(), "");
  const std::string html = page();
  EXPECT_THAT(html, HasSubstr("<details><summary>70 records changed in session 1</summary>"));
  EXPECT_THAT(html, HasSubstr("50 of 70 are listed. <code>loomerctl changes --session 1</code>"));
}

TEST_F(ReportTest, ConflictShowsWhatStoodAndWhatLost) {
  seed();
  a->rename(a->find("Zoo"), "Zoo of A");
  b->rename(b->find("Zoo"), "Zoo of B");
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  EXPECT_THAT(page(), AllOf(HasSubstr("<ins><bdi>Zoo of B</bdi></ins>"),
                            HasSubstr("<del><bdi>Zoo of A</bdi></del> <small>agreed before</small>")));
}

TEST_F(ReportTest, RefusedPlanIsNamedWithTheCommandsThatDecide) {
  a = makeClient("a");
  for (int i = 0; i < 10; ++i) a->addBookmark("", "B" + std::to_string(i), "http://b/" + std::to_string(i));
  ASSERT_EQ(a->sync(), "");
  EXPECT_THAT(page(), AllOf(HasSubstr("All is well."), Not(HasSubstr("class=\"state attention\""))));
  a->removeAll();
  ASSERT_NE(a->sync(), "");
  EXPECT_THAT(page(), AllOf(HasSubstr("class=\"state attention\""), HasSubstr("loomerctl approve a"),
                            HasSubstr("loomerctl restore a"), Not(HasSubstr("All is well."))));
}

TEST_F(ReportTest, NamesOfClientsAndTitlesStandEscapedEverywhere) {
  const std::string hostile = "</script><script>x</script>\"><img src=x onerror=x> \xE2\x80\xAEgnp.exe";
  a = makeClient(hostile);
  const std::string folder = a->addFolder("", hostile);
  a->addBookmark(folder, hostile, "http://h/\"><script>x</script>\xE2\x80\xAE");
  a->addBookmark(folder, hostile, "http://h/\"><script>x</script>\xE2\x80\xAE");
  a->addBookmark(folder, hostile, "data:text/html," + hostile);
  a->addFolder(folder, hostile);
  ASSERT_EQ(a->sync(), "");
  a->rename(folder, hostile + '2');
  ASSERT_EQ(a->sync(), "");
  const std::string html = page();
  EXPECT_THAT(html,
              AllOf(Not(HasSubstr("<img")), Not(HasSubstr("<script>x")), Not(HasSubstr("\xE2\x80\xAE"))));
  EXPECT_THAT(html,
              HasSubstr("&lt;/script&gt;&lt;script&gt;x&lt;/script&gt;&quot;&gt;&lt;img src=x onerror=x&gt; "
                        "\xEF\xBF\xBDgnp.exe"));
  EXPECT_THAT(html, HasSubstr("href=\"http://h/&quot;&gt;&lt;script&gt;x&lt;/script&gt;%E2%80%AE\""));
}

TEST_F(ReportTest, PageIsInTheLanguageOfTheUserAndSaysWhich) {
  seed();
  EXPECT_THAT(page(), AllOf(HasSubstr("<html lang=\"en\" dir=\"ltr\">"), HasSubstr(">Overview</h2>")));
  environment["LC_ALL"] = "de_DE.UTF-8";
  EXPECT_THAT(page(), AllOf(HasSubstr("<html lang=\"de\" dir=\"ltr\">"), HasSubstr(">Überblick</h2>"),
                            Not(HasSubstr("Overview"))));
}

TEST_F(ReportTest, StoreWithoutBookmarksHasAPage) {
  manager();
  EXPECT_THAT(page(),
              AllOf(HasSubstr("No client is registered."), HasSubstr("No session changed anything yet."),
                    HasSubstr("No bookmarks."), Not(HasSubstr("<svg"))));
}

TEST(ReportMarkup, OnlyAddressesOfTheWebAreLinks) {
  const struct {
    const char* address;
    bool linked;
  } rows[] = {
      {"http://a/", true},
      {"https://a/", true},
      {"HTTPS://A/", true},
      {"http://", false},
      {"javascript:alert(1)", false},
      {"JaVaScRiPt:alert(1)", false},
      {" javascript:alert(1)", false},
      {"java\nscript:alert(1)", false},
      {"data:text/html,<script>x</script>", false},
      {"vbscript:x", false},
      {"file:///etc/passwd", false},
      {"blob:https://a/1", false},
      {"view-source:http://a/", false},
      {"//a/", false},
      {"/a", false},
      {"#a", false},
      {" http://a/", false},
      {"http:alert(1)", false},
      {"", false},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(isLinked(row.address), row.linked) << row.address;
    loomer::Content bookmark;
    bookmark.name = "T";
    bookmark.url = row.address;
    EXPECT_EQ(bookmarkHtml(bookmark).find("href") != std::string::npos, row.linked) << row.address;
  }
}

TEST(ReportMarkup, LinkKeepsItsAddressButForWhatAPageWouldNotShow) {
  const struct {
    const char* address;
    const char* html;
  } rows[] = {
      {"http://a/?b=1&c=2", "http://a/?b=1&amp;c=2"},
      {"http://a/%20\xC3\xA9", "http://a/%20\xC3\xA9"},
      {"http://a/b c", "http://a/b%20c"},
      {"http://a/\tb\n\x7F", "http://a/%09b%0A%7F"},
      {"http://a/\xE2\x80\xAE\xE2\x81\xA6", "http://a/%E2%80%AE%E2%81%A6"},
      {"http://a/\xFF", "http://a/%FF"},
      {"http://a/'\"<>", "http://a/'&quot;&lt;&gt;"},
  };
  for (const auto& row : rows) EXPECT_EQ(loomerctl::linkHtml(row.address), row.html) << row.address;
}

TEST(ReportMarkup, LongTextIsCutBetweenCharacters) {
  EXPECT_EQ(loomerctl::asShortHtml("\xC3\xA9\xC3\xA9\xC3\xA9", 2), "\xC3\xA9\xC3\xA9…");
  EXPECT_EQ(loomerctl::asShortHtml("\xC3\xA9\xC3\xA9", 2), "\xC3\xA9\xC3\xA9");
  EXPECT_EQ(loomerctl::asShortHtml("<\xFF\xFF\xFF", 2), "&lt;\xEF\xBF\xBD…");
}

TEST(ReportMarkup, BookmarkWithoutATitleGoesByItsAddress) {
  loomer::Content bookmark;
  bookmark.url = "http://a/";
  EXPECT_THAT(bookmarkHtml(bookmark), HasSubstr(">http://a/</a>"));
  bookmark.url = "about:blank";
  EXPECT_EQ(bookmarkHtml(bookmark), "<code>about:blank</code>");
}

class SessionChart : public testing::Test {
 protected:
  FakePlatform platform;  // which has no tables: texts are in English
};

std::size_t countOf(const std::string& text, const std::string& piece) {
  std::size_t count = 0;
  for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + 1)) ++count;
  return count;
}

loomer::SessionEntry sessionAt(double seconds, std::size_t changed) {
  loomer::SessionEntry session;
  session.began = {seconds};
  session.changed = changed;
  return session;
}

constexpr double kDay = 86400;
constexpr double kNow = 9000 * kDay + kDay / 2;  // midday, whatever the zone

TEST_F(SessionChart, HasABarForEachDayWithSessions) {
  const std::string html = loomerctl::sessionChartHtml(
      {sessionAt(kNow, 5), sessionAt(kNow - 60, 2), sessionAt(kNow - 3 * kDay, 1)}, {kNow});
  EXPECT_THAT(html, HasSubstr("viewBox=\"0 0 14 40\""));
  EXPECT_EQ(countOf(html, "<rect"), 4u) << "two days, in each of two charts";
  EXPECT_EQ(countOf(html, ": 2</title>"), 1u);
  EXPECT_EQ(countOf(html, ": 7</title>"), 1u);
  EXPECT_THAT(html, HasSubstr("height=\"40.00\""));
}

TEST_F(SessionChart, LongTimesShareBarsAndFutureSessionsCountAsTodays) {
  const std::string html = loomerctl::sessionChartHtml(
      {sessionAt(kNow + 1000 * kDay, 1), sessionAt(kNow - 900 * kDay, 1), sessionAt(-1e18, 1)}, {kNow});
  EXPECT_EQ(countOf(html, "<rect"), 6u);
  const std::size_t at = html.find("viewBox=\"0 0 ") + 13;
  EXPECT_LE(std::stoi(html.substr(at)), loomerctl::kMostBars);
}

TEST_F(SessionChart, WithoutSessionsThereIsNone) { EXPECT_EQ(loomerctl::sessionChartHtml({}, {kNow}), ""); }

class TidyingTest : public CtlTest {
 protected:
  static std::vector<std::string> titles(const std::vector<const ReportEntry*>& entries) {
    std::vector<std::string> titles;
    for (const ReportEntry* each : entries) titles.push_back(each->record.content.name.toString());
    return titles;
  }
};

TEST_F(TidyingTest, FindsAddressesOfSeveralBookmarksAndFoldersWithoutAny) {
  a = makeClient("a");
  a->addSpecial("BookmarksMenu");
  const std::string folder = a->addFolder("", "F");
  a->addBookmark(folder, "One", "http://same/");
  a->addBookmark(folder, "Once", "http://once/");
  a->addBookmark(folder, "Two", "http://two/");
  a->addFolder(a->addFolder("", "Holds"), "Holds none");
  a->addBookmark("", "Other", "http://same/");
  a->addBookmark("", "Third", "http://same/");
  a->addBookmark("", "Two again", "http://two/");
  a->addBookmark("", "Nowhere", "");
  ASSERT_EQ(a->sync(), "");
  const loomerctl::ReportTree tree(store());
  const loomerctl::Tidying tidying = loomerctl::tidyingOf(tree);
  ASSERT_EQ(tidying.duplicates.size(), 2u);
  EXPECT_THAT(titles(tidying.duplicates[0]), ElementsAre("One", "Other", "Third"));
  EXPECT_THAT(titles(tidying.duplicates[1]), ElementsAre("Two", "Two again"));
  EXPECT_EQ(tree.pathHtml(*tidying.duplicates[0][0]), "<bdi>F</bdi>");
  EXPECT_THAT(titles(tidying.emptyFolders), ElementsAre("Holds none"));
  EXPECT_THAT(titles(tidying.withoutAddress), ElementsAre("Nowhere"));
}

}  // namespace
}  // namespace corvane
