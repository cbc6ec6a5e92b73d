#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <vector>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {
namespace {

int sign(int number) { return (number > 0) - (number < 0); }

TEST(Text, ComparesWithoutCase) {
  const struct {
    const char* phrase;
    const char* a;
    const char* b;
    int expected;
  } rows[] = {
      {"equal", "Apricot", "Apricot", 0},
      {"case alone", "aPRICOT", "Apricot", 0},
      {"before", "Apricot", "banana", -1},
      {"capitals are no earlier", "Zebra", "apricot", 1},
      {"a prefix sorts before", "apr", "Apricot", -1},
      {"nothing sorts first", "", "a", -1},
      {"both empty", "", "", 0},
      {"between the two ASCII cases", "_", "A", -1},
      {"accents keep apart", "\u00e9", "e", 1},
      {"accented letters fold", "\u00c9T\u00c9", "\u00e9t\u00e9", 0},
      {"Greek with a final sigma", "\u03a3\u03a3", "\u03c3\u03c2", 0},
      {"Cyrillic", "\u042f", "\u044f", 0},
      {"astral letters (Deseret)", "\U00010400", "\U00010428", 0},
      {"Kelvin sign", "\u212a", "k", 0},
      {"capital sharp s folds to the small one", "\u1e9e", "\u00df", 0},
      {"simple folding does not split", "\u00df", "ss", 1},
      {"capital I with a dot has no simple folding", "\u0130", "i", 1},
      {"capital I with a dot is itself, not a lower case one", "\u0130", "\u012f", 1},
      {"a Greek letter with iota below folds to the small one", "\u1f88", "\u1f80", 0},
      {"and to no sequence", "\u1f88", "\u1f00\u03b9", 1},
      {"a ligature is itself", "\ufb01", "fi", 1},
      {"a common prefix that ends within a character", "x\u00e9", "x\u00c9", 0},
      {"a common prefix that ends within a longer one", "x\u1f88a", "x\u1f80b", -1},
      {"a common prefix of half a character", "x\xE1\xBE\x88", "x\xE1\xBE", -1},
      {"no locale: I is i", "I", "i", 0},
      {"no normalisation", "\u00e9", "e\u0301", 1},
      {"bytes that are no UTF-8 sort last", "\xFF", "\U0010FFFF", 1},
      {"stray bytes compare as themselves", "\xC3", "\xC4", -1},
      {"a surrogate is no UTF-8", "\xED\xA0\x80", "\uFFFF", 1},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(sign(compareCaseInsensitive(row.a, row.b)), row.expected) << row.phrase;
    EXPECT_EQ(sign(compareCaseInsensitive(row.b, row.a)), -row.expected) << row.phrase;
  }
}

// The letters in front are the same, so that only what is skipped or backed up over can make a difference.
RC_GTEST_PROP(Text, ACommonPrefixMakesNoDifference, ()) {
  const auto piece =
      rc::gen::element<std::string>("a", "A", "\u00e9", "\u00c9", "\u1f88", "\u1f80", "\U00010400", "\x80",
                                    "\xE1", "\xE1\xBE", "\xFF", "\xED\xA0\x80");
  const auto text = rc::gen::map(rc::gen::container<std::vector<std::string>>(piece), [](const auto& pieces) {
    std::string joined;
    for (const std::string& part : pieces) joined += part;
    return joined;
  });
  const std::string a = *text, b = *text, prefix = *text + "|";
  RC_ASSERT(sign(compareCaseInsensitive(prefix + a, prefix + b)) == sign(compareCaseInsensitive(a, b)));
}

RC_GTEST_PROP(Text, ComparisonOrdersAnyBytes,
              (const std::string& a, const std::string& b, const std::string& c)) {
  RC_ASSERT(compareCaseInsensitive(a, a) == 0);
  RC_ASSERT(sign(compareCaseInsensitive(a, b)) == -sign(compareCaseInsensitive(b, a)));
  if (compareCaseInsensitive(a, b) <= 0 && compareCaseInsensitive(b, c) <= 0) {
    RC_ASSERT(compareCaseInsensitive(a, c) <= 0);
  }
}

TEST(Text, KnowsUtf8) {
  for (const char* valid : {"", "abc", "\u00e9", "\u20ac", "\uFFFF", "\U0010FFFF"})
    EXPECT_TRUE(isValidUtf8(valid));
  for (const char* invalid :
       {"\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xE0\x80\x80", "\xE2\x82", "\xED\xA0\x80",
        "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "a\xFFz", "\xC3\x28"}) {
    EXPECT_FALSE(isValidUtf8(invalid)) << invalid;
  }
}

TEST(Text, RepairedTextIsUtf8) {
  const struct {
    const char* text;
    const char* repaired;
  } rows[] = {
      {"", ""},
      {"a\u00e9\U0001F600", "a\u00e9\U0001F600"},
      {"a\xFFz\xC3", "a\uFFFDz\uFFFD"},
      {"\xE2\x82(", "\uFFFD\uFFFD("},
      {"a\xED\xA0\xBDz", "a\uFFFDz"},                          // a high surrogate
      {"\xED\xA0\xBD", "\uFFFD"},                              // at the end
      {"\xED\xB8\x80\xED\xA0\xBD\xC3", "\uFFFD\uFFFD\uFFFD"},  // a low one, and a high one before no text
      {"\xED\xA0\xBD\xED\xB8\x80", "\U0001F600"},              // a pair
      {"\xED\xA0\xBD\xED\xA0\xBD\xED\xB8\x80", "\uFFFD\U0001F600"},  // a pair behind a high one
  };
  for (const auto& row : rows) {
    EXPECT_EQ(repairedUtf8(row.text), row.repaired) << row.text;
    EXPECT_TRUE(isValidUtf8(repairedUtf8(row.text)));
  }
}

TEST(Text, EveryCodePointSurvivesUtf8) {
  for (char32_t codePoint = 0; codePoint <= 0x10FFFF; ++codePoint) {
    std::string text;
    appendUtf8(text, codePoint);
    const Utf8Step step = decodeUtf8(text, 0);
    ASSERT_EQ(step.codePoint, codePoint);
    ASSERT_EQ(step.length, text.size());
    ASSERT_EQ(utf8Length(codePoint), text.size());
    ASSERT_EQ(isAscii(text), codePoint < 0x80);
  }
}

TEST(Text, AsciiIsFoundAtEveryPlace) {
  for (std::size_t size = 0; size < 40; ++size) {
    std::string text(size, 'a');
    EXPECT_TRUE(isAscii(text));
    for (std::size_t at = 0; at < size; ++at) {
      text[at] = '\x80';
      EXPECT_FALSE(isAscii(text)) << size << " " << at;
      text[at] = 'a';
    }
  }
}

TEST(Text, CollapsedTextIsWhatAPageShows) {
  EXPECT_EQ(whiteSpaceCollapsed("\n a \t b\fc \r"), "a b c");
  EXPECT_EQ(whiteSpaceCollapsed("a b"), "a b");
  EXPECT_EQ(whiteSpaceCollapsed(" \t "), "");
}

}  // namespace
}  // namespace corvane
