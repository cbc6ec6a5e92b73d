// What people read, in their languages.

#include <gmock/gmock.h>

#include <sstream>

#include "tests/ctl/CtlFixture.h"
#include "tools/loomerctl/Text.h"

namespace corvane {
namespace {

using loomerctl::displayWidth;
using loomerctl::wrapped;
using testing::HasSubstr;

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(WrappedText, EndsLinesBetweenWideLettersWithoutASpace) {
  std::string text;
  for (int i = 0; i < 15; ++i) text += "次の同期で鍵を受け取ります。";
  const std::vector<std::string> lines = linesOf(wrapped(text));
  ASSERT_GT(lines.size(), 4u);
  std::string joined;
  for (const std::string& each : lines) {
    EXPECT_LE(displayWidth(each), 80u) << each;
    EXPECT_FALSE(each.starts_with("。")) << each;
    joined += each;
  }
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) EXPECT_GE(displayWidth(lines[i]), 76u) << lines[i];
  EXPECT_EQ(joined, text);
}

TEST(WrappedText, KeepsWordsAmongWideLettersWhole) {
  const std::string word(30, 'x');
  std::string text;
  for (int i = 0; i < 4; ++i) text += "鍵を" + word + "（" + word + "）で";
  std::string joined;
  for (const std::string& each : linesOf(wrapped(text))) {
    EXPECT_LE(displayWidth(each), 80u);
    EXPECT_FALSE(each.ends_with("（") || each.starts_with("）")) << each;
    joined += each;
  }
  EXPECT_EQ(joined, text);
  EXPECT_EQ(wrapped("one two  three"), "one two  three\n");
}

// loomerctl as a user of this language meets it.
class Languages : public CtlTest {
 protected:
  Run in(const std::string& locale, const std::vector<std::string>& arguments) {
    environment["LC_ALL"] = locale;
    return ctl(arguments);
  }
};

TEST_F(Languages, AreThoseOfTheUser) {
  useEmptyHome();
  EXPECT_THAT(in("de_DE.UTF-8", {"--help"}).out, HasSubstr("Aufruf: loomerctl COMMAND"));
  EXPECT_THAT(in("fr_CA.UTF-8", {"tree", "--help"}).out, HasSubstr("utilisation\u00A0: loomerctl tree"));
  EXPECT_THAT(in("es_MX", {"tree", "--limit", "1"}).err, HasSubstr("tree no tiene la opción \"--limit\"."));
  EXPECT_THAT(in("ja_JP.UTF-8", {"tree"}).err, HasSubstr("データストアはまだありません。"));
  for (const char* locale : {"C", "en_GB.UTF-8", "pt_BR.UTF-8"}) {
    EXPECT_THAT(in(locale, {"tree"}).err, HasSubstr("There is no store yet: ")) << locale;
  }
}

TEST_F(Languages, SayWhatIsWrongWithTheStore) {
  seed();
  breakCopy("UPDATE records SET place = 0 WHERE id > 0");
  EXPECT_THAT(in("de_DE.UTF-8", {"check"}).out, HasSubstr("- Platz doppelt vergeben: "));
  EXPECT_THAT(in("de_DE.UTF-8", {"check", "--json"}).out, HasSubstr("\"place taken twice\""));
  breakCopy("PRAGMA user_version = 99");
  EXPECT_THAT(in("de_DE.UTF-8", {"tree"}).err, HasSubstr("er hat die Version 99"));
}

TEST_F(Languages, NameSessionsAndTheirKinds) {
  seed();
  EXPECT_THAT(in("de_DE.UTF-8", {"sessions"}).out, HasSubstr("  Auffrischung  "));
  EXPECT_THAT(in("de_DE.UTF-8", {"changes"}).out, HasSubstr("Sitzung 1  "));
  EXPECT_THAT(in("de_DE.UTF-8", {"changes"}).out, HasSubstr("(Auffrischung)\n"));
}

TEST_F(Languages, LeaveWhatProgramsReadAlone) {
  seed();
  const std::string english = in("C", {"changes", "--json"}).out;
  EXPECT_EQ(in("ja_JP.UTF-8", {"changes", "--json"}).out, english);
}

TEST_F(Languages, KeepColumnsOfWideLettersInLine) {
  seed();
  const std::vector<std::string> lines = linesOf(in("ja_JP.UTF-8", {"show", numberOf("News")}).out);
  // The values of the fields, and the second column of the table behind them.
  const auto columnOf = [&](const std::string& mark) {
    for (const std::string& each : lines) {
      const std::size_t at = each.find(mark);
      if (at != std::string::npos) return displayWidth(each.substr(0, at));
    }
    return std::size_t{0};
  };
  EXPECT_EQ(columnOf("#"), 14u) << "項目";
  EXPECT_EQ(columnOf("/BookmarksBar/"), 14u) << "フォルダー";
  EXPECT_GT(columnOf("ローカル識別子"), 0u);
  EXPECT_EQ(columnOf("はい"), columnOf("保持"));
}

}  // namespace
}  // namespace corvane
