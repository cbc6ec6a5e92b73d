// `export` and `import`.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tests/ctl/CtlFixture.h"
#include "tests/ctl/HtmlFiles.h"

namespace corvane {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

constexpr const char* kShape =
    "[(r['depth'], r['kind'], r['title'], r.get('url'), r.get('special'), r.get('tabGroup')) for r in d]";

class TransferTest : public CtlTest {};

TEST_F(TransferTest, ExportThenImportIntoAnEmptyStoreGivesTheSameTree) {
  seed();
  const std::string odd = a->addFolder(a->find("BookmarksBar"), "  two  blanks & <tags> \"q\" ");
  a->nodes.at(odd).tabGroup = true;
  a->addBookmark(odd, "\ttab\tand tab ", "http://x/?a=1&amp=2&copy;=3\n\t");
  a->addBookmark(odd, "caf\xC3\xA9 \xE6\x97\xA5\xE6\x9C\xAC \xF0\x9F\x98\x80", "javascript:alert(\"x\")");
  a->addBookmark(odd, "", "http://untitled/");
  a->addFolder("", "Same");
  a->addBookmark(a->addFolder("", "Same"), "In the second", "http://2/");
  a->addBookmark("", "Twice", "http://t/");
  a->addBookmark("", "Twice", "http://t/");
  a->addSpecial("BookmarksMenu");
  ASSERT_EQ(a->sync(), "");
  const std::string before = json({"tree"}, kShape);
  const std::string file = platform.directory / "bookmarks.html";
  EXPECT_EQ(ctl({"export", file}).status, 0);
  useEmptyHome();
  const Run run = ctl({"import", file});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(json({"tree"}, kShape), before);
  EXPECT_EQ(json({"check"}, "d['sound']"), "True");
}

TEST_F(TransferTest, ImportingTheSameFileAgainAddsNothing) {
  seed();
  const std::string file = ctl({"export", "-"}).out;
  const Run again = ctl({"import", "-"}, file);
  EXPECT_EQ(again.status, 0);
  EXPECT_THAT(again.out, HasSubstr("is there already"));
  EXPECT_EQ(json({"tree"}, "len(d)"), "6");
}

// Another program takes our export and exports it again: it has collapsed the white space of titles.
TEST_F(TransferTest, ImportOfAnExportThatAnotherProgramMadeOfOursDoublesNothing) {
  a = makeClient("a");
  const std::string folder = a->addFolder("", "  two  blanks ");
  a->addBookmark(folder, "\ttab\tand line\nend ", "http://x/");
  a->addBookmark(folder, "tab and line end", "http://x/");
  a->addBookmark(folder, " only  in ours", "http://y/");
  ASSERT_EQ(a->sync(), "");
  const std::string file = htmlFile(
      "<DL><p><DT><H3>two blanks</H3><DL><p><DT><A HREF=\"http://x/\">tab and line end</A>"
      "<DT><A HREF=\"http://x/\">tab and line end</A><DT><A HREF=\"http://y/\">only in ours</A></DL></DL>");
  EXPECT_THAT(ctl({"import", "-"}, file).out, HasSubstr("is there already"));
  const std::string onceMore = htmlFile(
      "<DL><p><DT><H3>two blanks</H3><DL><p><DT><A HREF=\"http://x/\">tab and line end</A>"
      "<DT><A HREF=\"http://x/\">tab and line end</A><DT><A HREF=\"http://x/\">tab and line "
      "end</A></DL></DL>");
  EXPECT_THAT(ctl({"import", "-"}, onceMore).out, HasSubstr("Added 1 bookmark and 0 folders"));
}

TEST_F(TransferTest, TitleThatIsThereExactlyGoesBeforeOneThatDiffersInWhiteSpace) {
  a = makeClient("a");
  a->addBookmark(a->addFolder("", "F  x"), "Wide", "http://wide/");
  a->addBookmark(a->addFolder("", "F x"), "Narrow", "http://narrow/");
  ASSERT_EQ(a->sync(), "");
  const std::string file =
      htmlFile("<DL><p><DT><H3>F x</H3><DL><p><DT><A HREF=\"http://narrow/\">Narrow</A></DL></DL>");
  EXPECT_THAT(ctl({"import", "-"}, file).out, HasSubstr("is there already"));
}

TEST_F(TransferTest, ExportSaysWhatBrowsersExpect) {
  seed();
  const std::string file = ctl({"export", "-"}).out;
  EXPECT_THAT(
      file,
      StartsWith(htmlFile("<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=UTF-8\">\n")));
  EXPECT_THAT(file, HasSubstr(" PERSONAL_TOOLBAR_FOLDER=\"true\">BookmarksBar</H3>\n    <DL><p>\n"));
  EXPECT_THAT(file, MatchesRegex("(.|\n)*<DT><A HREF=\"http://d/\" ADD_DATE=\"[0-9]+\" "
                                 "LAST_MODIFIED=\"[0-9]+\">Daily</A>\n(.|\n)*"));
}

TEST_F(TransferTest, ImportMergesAndTravelsToEveryClient) {
  seed();
  const Run run = ctl({"import", "-"},
                      htmlFile("<DL><p><DT><H3 PERSONAL_TOOLBAR_FOLDER=\"true\">Bookmarks Toolbar</H3><DL><p>"
                               "<DT><H3>News</H3><DL><p><DT><A HREF=\"http://d/\">Daily</A>"
                               "<DT><A HREF=\"http://m/\">Monthly</A></DL></DL>"
                               "<DT><A HREF=\"http://z/\">Another Zoo</A></DL>"));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("Added 2 bookmarks and 0 folders as session"));
  EXPECT_THAT(run.out, HasSubstr("3 were there already"));
  settle({a.get(), b.get()});
  const char* merged =
      "BookmarksBar!(News(Daily@http://d/ Weekly@http://w/ Monthly@http://m/) Shop@http://s/) "
      "Zoo@http://z/ "
      "\"Another Zoo\"@http://z/";
  EXPECT_EQ(a->text(), merged);
  EXPECT_EQ(b->text(), merged);
}

TEST_F(TransferTest, ImportIsASessionOfItsOwnThatCanBeUndone) {
  seed();
  const std::string before = a->text();
  const std::string file = platform.directory / "from browser.html";
  writeFile(file, htmlFile(kDescribedStyle));
  ASSERT_EQ(ctl({"import", file}).status, 0);
  settle({a.get(), b.get()});
  EXPECT_THAT(b->text(),
              HasSubstr("Work(Inner(Deep@http://deep.example/) After@http://after.example/) Empty()"));
  const std::string expression =
      "[(s['client'], s['kind'], s['changed']) for s in d if s['kind'] == 'import']";
  EXPECT_EQ(json({"sessions"}, expression), "[('loomerctl import from browser.html', 'import', 7)]");
  const std::string session = json({"sessions"}, "[s['session'] for s in d if s['kind'] == 'import'][0]");
  EXPECT_EQ(ctl({"undo", session}).status, 0);
  settle({a.get(), b.get()});
  EXPECT_EQ(a->text(), before);
  EXPECT_EQ(b->text(), before);
}

TEST_F(TransferTest, FilesThatCannotBeUsedAreRefusedAndMakeNoStore) {
  useEmptyHome();
  EXPECT_EQ(ctl({"import", platform.directory / "none.html"}).status, 1);
  const Run nothing = ctl({"import", "-"}, "just text");
  EXPECT_EQ(nothing.status, 1);
  EXPECT_THAT(nothing.err,
              HasSubstr("There are no bookmarks in standard input. `import` takes a bookmarks file"));
  EXPECT_EQ(::access((home + "/Library").c_str(), F_OK), -1);
}

TEST_F(TransferTest, ImportSaysWhatItLeavesOut) {
  useEmptyHome();
  const std::string line =
      "Left out: 2 tags, 1 keyword, 2 descriptions, 2 separators, 1 icon, 2 dates, 1 other value.\n";
  EXPECT_THAT(ctl({"import", "-"}, htmlFile(kDescribedStyle)).out, EndsWith(" next session.\n" + line));
  EXPECT_THAT(ctl({"import", "-"}, htmlFile(kDescribedStyle)).out, EndsWith(" is there already.\n" + line));
  EXPECT_THAT(ctl({"import", "-"}, htmlFile(kBareStyle)).out, Not(HasSubstr("Left out")));
}

TEST_F(TransferTest, DryRunListsWhatAnImportAddsAndLeavesOutAndChangesNothing) {
  seed();
  const std::string before = json({"sessions"}, "d");
  const Run run = ctl({"import", "--dry-run", "-"}, R"({"version": 1, "roots": {"bookmark_bar": {"children": [
      {"type": "folder", "name": "News", "children": [{"type": "url", "name": "Daily", "url": "http://d/"},
      {"type": "url", "name": "Mon\u0007thly", "url": "http://m/", "meta_info": {"k": "v"}}, {"type": "gap"}]}]}}})");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out,
            "  + /BookmarksBar/News/Mon\u2407thly  http://m/\n"
            "  left out: the value \"meta_info/k\" of /BookmarksBar/News/Mon\u2407thly\n"
            "  left out: the entry \"/roots/bookmark_bar/children/0/children/2\" in /BookmarksBar/News/\n"
            "Would add 1 bookmark and 0 folders; 3 are there already. Nothing was changed.\n"
            "Left out: 1 other value, 1 other entry.\n");
  EXPECT_EQ(json({"sessions"}, "d"), before);
}

TEST_F(TransferTest, DryRunMakesNoStore) {
  useEmptyHome();
  const Run run = ctl({"import", "--dry-run", "-"}, htmlFile(kToolbarStyle));
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_THAT(run.out, HasSubstr("Would add 3 bookmarks and 2 folders; 0 are there already."));
  EXPECT_EQ(::access((home + "/Library").c_str(), F_OK), -1);
}

TEST_F(TransferTest, DryRunOfADeepTreeShowsTheNearestFolders) {
  useEmptyHome();
  std::string deep = "<DL>";
  for (int i = 0; i < 2'000; ++i) deep += "<DT><H3>F" + std::to_string(i) + "</H3><DL>";
  EXPECT_THAT(ctl({"import", "--dry-run", "-"}, htmlFile(deep)).out,
              HasSubstr("  + \u2026/F1992/F1993/F1994/F1995/F1996/F1997/F1998/F1999/\n"));
}

TEST_F(TransferTest, ImportSaysWhatKindOfFileItWantsWhenItGetsAnother) {
  useEmptyHome();
  const struct {
    std::string bytes;
    const char* kind;
  } rows[] = {
      {"", "empty"},
      {" \r\n", "empty"},
      {"\xEF\xBB\xBF", "empty"},
      {"bplist00\xD0", "a binary property list"},
      {"\x1F\x8B\x08", "a gzip archive"},
      {"PK\x03\x04", "a ZIP archive"},
      {"\n{\n \"guid\": \"<DT><A HREF='http://a/'>\"}", "a JSON file of another kind"},
      {"[{\"a\": 1}]", "a JSON file of another kind"},
      {"<?xml version=\"1.0\"?>\n<!-- x -->\n<plist version=\"1.0\"><dict/></plist>",
       "a property list in XML"},
      {"<plist/>", "a property list in XML"},
      {"<?xml version=\"1.0\"?>\n<xbel/>", "an XBEL file"},
  };
  for (const auto& row : rows) {
    const Run run = ctl({"import", "-"}, row.bytes);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, StartsWith("loomerctl: standard input is " + std::string(row.kind) +
                                    ". `import` takes a bookmarks file in HTML, as browsers export it, "));
  }
  EXPECT_THAT(ctl({"import", platform.directory / ""}).err,
              StartsWith("loomerctl: " + (platform.directory / "") + " is a directory. `import` takes "));
}

TEST_F(TransferTest, ImportReadsTheDeclaredCharacterSetAndRefusesWhatItCannotDecode) {
  useEmptyHome();
  const std::string begin = "<META CHARSET=\"windows-1251\"><DL><DT><A HREF=\"http://a/\">\xCF\xF0";
  EXPECT_EQ(
      ctl({"import", "-"}, htmlFile(begin + "\x98</A></DL>")).err,
      "loomerctl: standard input cannot be read in the character set \"windows-1251\", which it declares: "
      "the bytes at offset 95, line 2, are no character of it.\n");
  ASSERT_EQ(ctl({"import", "-"}, htmlFile(begin + "</A></DL>")).status, 0);
  EXPECT_EQ(json({"tree"}, "[r['title'] for r in d]"), "['\xD0\x9F\xD1\x80']");
}

TEST_F(TransferTest, ExportThatCannotBeWrittenIsRefused) {
  seed();
  const Run run = ctl({"export", "/nowhere/at/all.html"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err,
              AllOf(HasSubstr("Cannot write /nowhere/at/all.html"), HasSubstr("No such file or directory")));
}

TEST_F(TransferTest, ExportIntoAPipeGoesThroughItAndDoesNotReplaceIt) {
  seed();
  const std::string path = platform.directory / "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const FileDescriptor pipe(open(path.c_str(), O_RDWR | O_NONBLOCK));  // what is exported fits into it
  ASSERT_TRUE(pipe);
  EXPECT_EQ(ctl({"export", path}).status, 0);
  std::string bytes(1 << 16, 0);
  const ssize_t count = read(pipe.number(), bytes.data(), bytes.size());
  ASSERT_GT(count, 0);
  bytes.resize(static_cast<std::size_t>(count));
  EXPECT_EQ(bytes, ctl({"export", "-"}).out);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST_F(TransferTest, ImportReadsAPipe) {
  useEmptyHome();
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const FileDescriptor readEnd(ends[0]);
  {
    const FileDescriptor writeEnd(ends[1]);
    ASSERT_FALSE(writeAll(writeEnd, htmlFile("<DL><p><DT><A HREF=\"http://z/\">Zoo</A></DL>")));
  }
  const std::string descriptors = "/proc/" + std::to_string(getpid()) + "/fd/";
  const Run run = ctl({"import", descriptors + std::to_string(readEnd.number())});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(json({"tree"}, "[r['title'] for r in d]"), "['Zoo']");
}

TEST_F(TransferTest, ToolbarFolderOfAFileMakesTheSpecialOneWhereThereIsNone) {
  useEmptyHome();
  ASSERT_EQ(ctl({"import", "-"}, htmlFile(kToolbarStyle)).status, 0);
  EXPECT_EQ(json({"tree"}, "[(r['title'], r['special']) for r in d if r['kind'] == 'folder']"),
            "[('BookmarksBar', True), ('News', False)]");
}

}  // namespace
}  // namespace corvane
