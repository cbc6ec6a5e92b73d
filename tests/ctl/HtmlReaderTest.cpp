// Reading bookmarks files as browsers write them.

#include <gmock/gmock.h>

#include "tests/ctl/HtmlFiles.h"
#include "tests/ctl/ImportOutline.h"
#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/HtmlText.h"

namespace corvane::loomerctl {
namespace {

struct HtmlRow {
  const char* phrase;
  std::string html;
  const char* outline;
  friend void PrintTo(const HtmlRow& row, std::ostream* out) { *out << row.phrase; }
};

class HtmlReaderTest : public testing::TestWithParam<HtmlRow> {};

TEST_P(HtmlReaderTest, Reads) {
  EXPECT_EQ(outline(parseBookmarksHtml(GetParam().html).nodes), GetParam().outline) << GetParam().phrase;
}

const HtmlRow kRows[] = {
    {"a file with a toolbar folder, dates and icons", htmlFile(kToolbarStyle),
     "Toolbar!(News(\"Caf\xC3\xA9 & more\"@\"http://a.example/?x=1&copy=2\") Plain@http://b.example/) "
     "Loose@http://c.example/"},
    {"a file with descriptions, separators and an introduction", htmlFile(kDescribedStyle),
     "Menu@\"place:sort=8\" Work(Inner(Deep@http://deep.example/) After@http://after.example/) Empty() "
     "Last@http://l.example/"},
    {"a file of the oldest kind: upper case, no closing of items, line ends of two characters",
     htmlFile(kOldStyle),
     "Links(One@http://one.example/ Two@http://two.example/) Three@http://three.example/"},
    {"a file without a root heading, folders by list alone", htmlFile(kBareStyle),
     "Favourites(Home@https://home.example/) Reading() Root@https://root.example/"},
    {"unclosed tags", "<DL><DT><A HREF=\"http://a/\">A<DT><H3>F<DL><DT><A HREF=\"http://b/\">B",
     "A@http://a/ F(B@http://b/)"},
    {"upper and lower case",
     "<dl><dt><a href='http://a/'>A</A><dT><h3>F</H3><Dl><dt><A hReF='http://b/'>B</a></dL></DL>",
     "A@http://a/ F(B@http://b/)"},
    {"attributes unquoted",
     "<DL><DT><A HREF=http://a/b?c=d ADD_DATE=12 >A</A><DT><H3 PERSONAL_TOOLBAR_FOLDER=true>T</H3><DL></DL>",
     "A@\"http://a/b?c=d\" T!()"},
    {"a toolbar flag of false", "<DT><H3 PERSONAL_TOOLBAR_FOLDER=\"false\">T</H3><DL></DL>", "T()"},
    {"<DD> descriptions ignored, links in them too",
     "<DL><DT><A HREF=\"http://a/\">A</A><DD>Text <A HREF=\"http://no/\">no</A> more<DT><A "
     "HREF=\"http://b/\">B</A></DL>",
     "A@http://a/ B@http://b/"},
    {"a description between a folder's title and its list",
     "<DL><DT><H3>F</H3><DD>About F<DL><DT><A HREF=\"http://b/\">B</A></DL></DL>", "F(B@http://b/)"},
    {"<HR> ignored", "<DL><DT><A HREF=\"http://a/\">A</A><HR><DT><A HREF=\"http://b/\">B</A></DL>",
     "A@http://a/ B@http://b/"},
    {"nested <DL> without a heading belongs to the folder around it",
     "<DL><DL><DT><A HREF=\"http://a/\">A</A></DL><DT><A HREF=\"http://b/\">B</A></DL>",
     "A@http://a/ B@http://b/"},
    {"a bookmark between a folder's title and a list",
     "<DL><DT><H3>F</H3><A HREF=\"http://a/\">A</A><DL><DT><A HREF=\"http://b/\">B</A></DL></DL>",
     "F() A@http://a/ B@http://b/"},
    {"lists closed too often",
     "</DL></DL><DL><DT><H3>F</H3><DL></DL></DL></DL></DL><DT><A HREF=\"http://a/\">A</A>",
     "F() A@http://a/"},
    {"a folder without a list", "<DL><DT><H3>F</H3><DT><A HREF=\"http://a/\">A</A></DL>", "F() A@http://a/"},
    {"CRLF", "<DL><p>\r\n<DT><A HREF=\"http://a/\">A\r\n title</A>\r\n</DL><p>\r\n", "\"A title\"@http://a/"},
    {"entities",
     "<DL><DT><A HREF=\"http://a/?a=1&amp;b=2\">&lt;&quot;&#39;&#x20AC;&#8211;&eacute;&hellip;&gt;</A></DL>",
     R"("<\"'€–é…>"@"http://a/?a=1&b=2")"},
    {"what looks like an entity and is none",
     "<DL><DT><A HREF=\"http://a/?x&copy=1&lt\">AT&T &nosuch; &#xZZ; &#0;</A></DL>",
     "\"AT&T &nosuch; &#xZZ; \xEF\xBF\xBD\"@\"http://a/?x&copy=1&lt\""},
    {"inline tags and comments in titles",
     "<DL><DT><A HREF=\"http://a/\">A <b>bold</b><!-- no <DT> --> title</A></DL>",
     "\"A bold title\"@http://a/"},
    {"scripts and style sheets",
     "<script>if (a<b) \"<DT><A HREF='http://no/'>\"</script><style><DT></style><DL><DT><A "
     "HREF='http://a/'>A</A></DL>",
     "A@http://a/"},
    {"a mark inside the page is no bookmark",
     "<DL><DT><A NAME=\"x\">Mark</A><DT><A HREF=\"http://a/\">A</A></DL>", "A@http://a/"},
    {"an address with white space inside", "<DL><DT><A HREF=\" javascript:void\n(0) \">J</A></DL>",
     "J@\"javascript:void(0)\""},
    {"a quote left open", "<DL><DT><A HREF=\"http://a/>A</A><DT><A HREF='http://b/'>B</A></DL>",
     "A@http://a/ B@http://b/"},
    {"a tag cut off", "<DL><DT><A HREF=\"http://a/\">A</A><DT><A HREF=\"http", "A@http://a/"},
    {"a byte of zero", std::string("<DT><A HREF=\"x\0y\">A</A>", 23), "A@x\xEF\xBF\xBDy"},
    {"nothing", "", ""},
    {"no bookmarks file at all", "<html><body><p>Hello & goodbye</p></body></html>", ""},
};

INSTANTIATE_TEST_SUITE_P(Files, HtmlReaderTest, testing::ValuesIn(kRows));

TEST(HtmlLeftOutTest, WhatTheTruthHasNoPlaceForIsKeptWithItsNode) {
  const BrowserBookmarks file = parseBookmarksHtml(
      "<DL><DT><A HREF=\"http://a/\" TAGS=\"a, b,,\" SHORTCUTURL=\"k\" ICON=\"data:,\" ADD_DATE=\"1\" "
      "LAST_CHARSET=\"UTF-8\">A</A><DD>About <b>A</b> and <A HREF=\"http://no/\" TAGS=\"no\">more</A><HR>"
      "<DT><A HREF=\"http://b/\" TAGS=\" \" SHORTCUTURL=\"\" ADD_DATE=\"0\">B</A><DD> \n "
      "<DT><H3 LAST_MODIFIED=\"2\" FEEDURL=\"http://f/\">F</H3><DD>About F<DL><HR></DL></DL><DD>The end");
  EXPECT_EQ(leftOutOutline(file),
            "t(A:a) t(A:b) k(A:k) v(A:UTF-8) s(:) d(A:About A and more) v(F:http://f/) d(F:About F) s(F:) "
            "d(F:The end) "
            "icons=1 dates=2");
}

TEST(HtmlOtherBookmarksTest, FolderForWhatLiesInNoOtherHasOneNameInEveryLanguage) {
  const char* const file =
      "<DL><DT><H3 UNFILED_BOOKMARKS_FOLDER=\"true\">Weitere Lesezeichen</H3><DL><DT><A "
      "HREF=\"http://a/\">A</A></DL></DL>";
  EXPECT_EQ(outline(parseBookmarksHtml(file).nodes), "\"Other Bookmarks\"(A@http://a/)");
}

constexpr const char* kTexts[] = {
    "plain", "a  b",  " blank ends ", "\ttab\t",    "<&>\"'", "\xC3\xA9\xF0\x9F\x98\x80",
    "&amp;", "&#32;", "\x01\x1f",     "a &copy; b", "   ",    ""};

TEST(HtmlTextTest, WhateverIsEscapedReadsBack) {
  for (const char* text : kTexts) {
    EXPECT_EQ(htmlTitle(htmlEscapedTitle(text)), text);
    EXPECT_EQ(htmlAttribute(htmlEscapedAttribute(text)), text);
  }
  EXPECT_EQ(htmlAttribute(htmlEscapedAttribute("tab\tline\nend\r")), "tab\tline\nend\r");
}

TEST(HtmlTextTest, TitlesHoldNoNumericReferences) {
  for (const char* text : kTexts) {
    const std::string written = htmlEscapedTitle(text);
    EXPECT_EQ(written.find("&#"), std::string::npos) << written;
  }
  EXPECT_EQ(htmlEscapedTitle(" \ta\x01  b\t "), " \ta\x01  b\t ");
}

TEST(HtmlTextTest, LineEndInATitleIsWrittenAsABlank) {
  EXPECT_EQ(htmlEscapedTitle("a\nb\r\nc\f"), "a b  c ");
}

TEST(HtmlTextTest, WhiteSpaceThatBreaksTheLineOfATitleIsLayout) {
  EXPECT_EQ(htmlTitle("\n    a\r\n\tb  c\n"), "a b  c");
  EXPECT_EQ(htmlTitle(" \n \t"), "");
}

}  // namespace
}  // namespace corvane::loomerctl
