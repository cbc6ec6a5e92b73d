// Bookmarks files in other character sets than UTF-8.

#include <gtest/gtest.h>

#include "tests/foundation/BinaryPlistBuilder.h"
#include "tools/loomerctl/BookmarksHtml.h"
#include "tools/loomerctl/HtmlCharacterSet.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {
namespace {

using namespace std::string_view_literals;

// The title of the first bookmark, or why the file is refused.
std::string titleIn(std::string_view bytes) {
  try {
    const auto nodes = parseBookmarksHtml(htmlAsUtf8(bytes, "old.html")).nodes;
    return nodes.empty() ? "no bookmarks" : nodes[0].title;
  } catch (const Refused& refused) {
    return refused.reason();
  }
}

std::string bookmark(const std::string& title) {
  return "<DL><DT><A HREF=\"http://a/\">" + title + "</A></DL>";
}

std::string declaring(const std::string& label, const std::string& title) {
  return "<META HTTP-EQUIV=\"Content-Type\" CONTENT=\"text/html; charset=" + label + "\">\n" +
         bookmark(title);
}

std::string utf16(std::u16string_view text, bool bigEndian) {
  std::string bytes;
  for (const char16_t unit : text) {
    const char halves[] = {static_cast<char>(unit & 0xFF), static_cast<char>(unit >> 8)};
    bytes += {halves[bigEndian], halves[!bigEndian]};
  }
  return bytes;
}

TEST(HtmlCharacterSet, DeclaredSetIsReadAsBrowsersReadIt) {
  // The bytes are what Python's codecs make of the texts.
  const struct {
    const char* label;
    const char* hex;
    const char* text;
  } rows[] = {
      {"utf-8", "c3a9e697a5", "é日"},
      {"cp866", "8fe0a8a2a5e2", "Привет"},
      {"iso-8859-2", "a3f364bc", "Łódź"},
      {"latin3", "a1", "Ħ"},
      {"iso-8859-4", "d3", "Ķ"},
      {"cyrillic", "bfe0d8d2d5e2", "Привет"},
      {"arabic", "d3e4c7e5", "سلام"},
      {"greek", "d9ecdde3e1", "Ωμέγα"},
      {"iso-8859-8-i", "f9ece5ed", "שלום"},
      {"latin6", "af", "Ŋ"},
      {"iso-8859-13", "cc", "Ģ"},
      {"iso-8859-14", "d0", "Ŵ"},
      {"iso-8859-15", "a4", "€"},
      {"iso-8859-16", "aa", "Ș"},
      {"koi8-r", "f0d2c9d7c5d4", "Привет"},
      {"koi8-u", "ebc9a7d7", "Київ"},
      {"macintosh", "bddb", "Ω€"},
      {"tis-620", "e4b7c280", "ไทย€"},
      {"windows-1250", "a3f3649f", "Łódź"},
      {"windows-1251", "cff0e8e2e5f2", "Привет"},
      {"ISO-8859-1", "e980", "é€"},
      {"us-ascii", "937194", "“q”"},
      {"windows-1253", "d9ecdde3e1", "Ωμέγα"},
      {"iso-8859-9", "f080", "ğ€"},
      {"windows-1255", "f9ece5ed", "שלום"},
      {"windows-1256", "d3e1c7e3", "سلام"},
      {"windows-1257", "cc", "Ģ"},
      {"windows-1258", "f0fe", "đ₫"},
      {"x-mac-cyrillic", "8ff0e8e2e5f2", "Привет"},
      {"GB2312", "d6d0cec4c55fa2e3", "中文臺€"},
      {"gb18030", "9439fc36", "😀"},
      {"big5", "a4a4a4e5", "中文"},
      {"euc-jp", "c6fccbdcb8ec", "日本語"},
      {"iso-2022-jp", "1b2442467c4b5c386c1b2842", "日本語"},
      {"Shift_JIS", "93fa967b8cea87408160", "日本語①～"},
      {"euc-kr", "c7d1b1b9beee94ee", "한국어뷁"},
      // What could be read byte by byte is no UTF-16.
      {"utf-16", "c3a9", "é"},
  };
  for (const auto& row : rows) {
    const std::string title = hexBytes(row.hex);
    EXPECT_EQ(titleIn(declaring(row.label, title)), row.text) << row.label;
    EXPECT_EQ(titleIn("<meta charset=" + std::string(row.label) + ">" + bookmark(title)), row.text)
        << row.label;
  }
}

TEST(HtmlCharacterSet, DeclarationIsFoundInEveryForm) {
  const std::string title = bookmark("\xCF");
  for (const char* form :
       {"<META CHARSET=windows-1251>", "<meta charset=' Windows-1251 '/>",
        "<!-- charset=utf-8 --><meta Charset=CP1251>",
        "<meta content='text/html;CHARSET = \"x-cp1251\" ; x' http-equiv=content-type>",
        "<meta name=x content='text/html; charset=utf-8'><meta charset=windows-1251>",
        "<meta http-equiv=content-type content=text/html><meta charset=windows-1251><meta charset=utf-8>",
        "<meta http-equiv=content-type content='charset'><meta charset=cp1251>"}) {
    EXPECT_EQ(titleIn(form + title), "П") << form;
  }
}

TEST(HtmlCharacterSet, LongTextIsReadToItsEnd) {
  std::string cyrillic, japanese, expectedCyrillic, expectedJapanese;
  for (int i = 0; i < 30'000; ++i) {
    cyrillic += "\xCF";
    expectedCyrillic += "П";
    japanese +=
        "\x93\xFA"
        "a";
    expectedJapanese += "日a";
  }
  EXPECT_EQ(titleIn(declaring("windows-1251", cyrillic)), expectedCyrillic);
  EXPECT_EQ(titleIn(declaring("shift_jis", japanese)), expectedJapanese);
}

TEST(HtmlCharacterSet, ByteOrderMarkGoesBeforeTheDeclaration) {
  EXPECT_EQ(titleIn("\xEF\xBB\xBF" + declaring("windows-1251", "é")), "é");
  const std::u16string text = u"<META CHARSET=utf-8><DT><A HREF=\"http://a/\">日😀</A>";
  EXPECT_EQ(titleIn("\xFF\xFE" + utf16(text, false)), "日😀");
  EXPECT_EQ(titleIn("\xFE\xFF" + utf16(text, true)), "日😀");
}

TEST(HtmlCharacterSet, Utf16IsKnownWithoutItsMark) {
  const std::u16string text = u"<DT><A HREF=\"http://a/\">日</A>";
  EXPECT_EQ(titleIn(utf16(text, false)), "日");
  EXPECT_EQ(titleIn(utf16(text, true)), "日");
}

TEST(HtmlCharacterSet, WithoutMarkAndDeclarationItIsUtf8) {
  EXPECT_EQ(titleIn(bookmark("é")), "é");
  EXPECT_EQ(
      titleIn("<html>\r\n" + bookmark("\xE9")),
      "old.html cannot be read in the character set UTF-8: the bytes at offset 36, line 2, are no character "
      "of it. A file in another one declares it, as in <META CHARSET=\"windows-1251\">.");
}

TEST(HtmlCharacterSet, WhatIsNoCharacterOfTheDeclaredSetIsRefusedWithItsPlace) {
  EXPECT_EQ(
      titleIn("<meta charset=windows-1251>\n\r\n\r" + bookmark("\xCF\x98")),
      "old.html cannot be read in the character set \"windows-1251\", which it declares: the bytes at offset "
      "60, line 4, are no character of it.");
  EXPECT_EQ(
      titleIn("<meta charset=sjis>" + bookmark("a") + "\x93"),
      "old.html cannot be read in the character set \"sjis\", which it declares: the bytes at offset 57, "
      "line 1, are no character of it.");
  EXPECT_EQ(titleIn("\xFF\xFE" + utf16(u"<DT>\n", false) + "a"),
            "old.html cannot be read in the character set UTF-16LE: the bytes at offset 12, line 2, are no "
            "character of it. A file in another one declares it, as in <META CHARSET=\"windows-1251\">.");
}

TEST(HtmlCharacterSet, SetThatIsNotKnownIsRefused) {
  for (const char* label : {"hz-gb-2312", "utf-7", "koi8-r//translit", "koi8-r koi8-u", "wchar_t", ""}) {
    EXPECT_EQ(titleIn("<META CHARSET=\"" + std::string(label) + "\">" + bookmark("a")),
              "old.html declares the character set \"" + std::string(label) +
                  "\", which is not known. Save it as UTF-8, and declare that.");
  }
}

TEST(HtmlCharacterSet, SurrogateThatStandsAloneIsReplaced) {
  EXPECT_EQ(titleIn(bookmark("a\xED\xA0\xBDz")), "a\uFFFDz");
  EXPECT_EQ(titleIn("<DT><A HREF=http://a/>a\xED\xB8\x80"), "a\uFFFD");
  for (const bool bigEndian : {false, true}) {
    const std::u16string begin = u"\uFEFF<DT><A HREF=http://a/>a";
    EXPECT_EQ(titleIn(utf16(begin + u"\xD83Dz\xDE00\xD83D\xDE00\xDE00</A>", bigEndian)),
              "a\uFFFDz\uFFFD😀\uFFFD");
    EXPECT_EQ(titleIn(utf16(begin + u"\xD83D", bigEndian)), "a\uFFFD");
  }
}

}  // namespace
}  // namespace corvane::loomerctl
