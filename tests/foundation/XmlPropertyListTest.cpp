#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/foundation/PropertyListReason.h"

namespace corvane {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

Value readXml(const std::string& inside) {
  return readPropertyList("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + inside +
                          "</plist>");
}

// The declaration that the project's files do without.
std::string documentType(const std::string& rest) {
  return std::string("<!DOC") + "TYPE plist " + rest + ">\n";
}

TEST(XmlPropertyList, ReadsEveryKindOfValue) {
  const struct {
    const char* inside;
    Value expected;
  } rows[] = {
      {"<true/>", true},
      {"<false></false>", false},
      {"<integer>0</integer>", 0},
      {"<integer>-17</integer>", -17},
      {"<integer>+17</integer>", 17},
      {"<integer> 17\n</integer>", 17},
      {"<integer>007</integer>", 7},
      {"<integer>1_000_000</integer>", 1000000},
      {"<integer>0x1f</integer>", 31},
      {"<integer>0XFF</integer>", 255},
      {"<integer>0xffffffffffffffff</integer>", std::numeric_limits<std::uint64_t>::max()},
      {"<integer>18446744073709551615</integer>", std::numeric_limits<std::uint64_t>::max()},
      {"<integer>-9223372036854775808</integer>", std::numeric_limits<std::int64_t>::min()},
      {"<real>1</real>", 1.0},
      {"<real> +1.5e3 </real>", 1500.0},
      {"<real>-inf</real>", -std::numeric_limits<double>::infinity()},
      {"<real>5e-324</real>", 5e-324},
      {"<date>2001-01-01T00:00:00Z</date>", Date{0.0}},
      {"<date>\n2004-02-29T12:30:15Z\n</date>", Date{99750615.0}},
      {"<date>2001-01-02Z</date>", Date{86400.0}},
      {"<date>2001-01-01T01Z</date>", Date{3600.0}},
      {"<date>2001-01-01T01:01Z</date>", Date{3660.0}},
      {"<date>0001-01-01T00:00:00Z</date>", Date{-63113904000.0}},
      {"<data>AAEC\n\t/w==</data>", Data(std::string_view("\0\1\2\xff", 4))},
      {"<data>AAE</data>", Data(std::string_view("\0\1", 2))},
      {"<data></data>", Data("")},
      {"<string>a &amp; b &lt; &#xe9; &#x1F600;</string>", "a & b < \u00e9 \U0001F600"},
      {"<string><![CDATA[<x>]]></string>", "<x>"},
      {"<string/>", ""},
      {"<array><string>a</string> <!-- between --> <integer>1</integer></array>", Array{"a", 1}},
      {"<array/>", Array()},
      {"<dict><key></key><true/><key>b</key><dict/></dict>", Dictionary{{"", true}, {"b", Dictionary()}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.inside);
    EXPECT_EQ(readXml(row.inside), row.expected);
    EXPECT_EQ(readPropertyList(writeXmlPropertyList(row.expected)), row.expected);
  }
}

TEST(XmlPropertyList, RefusesWhatItCannotRead) {
  const struct {
    const char* inside;
    const char* cause;
  } rows[] = {
      {"", "no value inside"},
      {"<true/><true/>", "a second value"},
      {"<true>1</true>", "text inside <true>"},
      {"<thing/>", "unknown element <thing>"},
      {"<plist/>", "element <plist> inside another element"},
      {"<array><key>a</key></array>", "<key> outside a dictionary"},
      {"<key>a</key>", "<key> outside a dictionary"},
      {"<dict><true/></dict>", "element <true> without a key"},
      {"<dict><key>a</key></dict>", "key \"a\" without a value"},
      {"<dict><key>a</key><key>b</key><true/></dict>", "key \"a\" without a value"},
      {"<dict>text</dict>", "text outside an element that holds text"},
      {"<string><string/></string>", "element <string> inside <string>"},
      {"<integer></integer>", "\"\" is not an integer of at most 64 bits"},
      {"<integer>1__0</integer>", "is not an integer of at most 64 bits"},
      {"<integer>_1</integer>", "is not an integer of at most 64 bits"},
      {"<integer>1.5</integer>", "is not an integer of at most 64 bits"},
      {"<integer>--1</integer>", "is not an integer of at most 64 bits"},
      {"<integer>18446744073709551616</integer>", "is not an integer of at most 64 bits"},
      {"<integer>-9223372036854775809</integer>", "is not an integer of at most 64 bits"},
      {"<real>1,5</real>", "\"1,5\" is not a real"},
      {"<real>1e999</real>", "\"1e999\" is not a real"},
      {"<real>+-1</real>", "\"+-1\" is not a real"},
      {"<date>2001-02-29T00:00:00Z</date>", "\"2001-02-29T00:00:00Z\" is not a date"},
      {"<date>2001-01-01T24:00:00Z</date>", "is not a date"},
      {"<date>2001-01-01T00:00:00</date>", "is not a date"},
      {"<date></date>", "is not a date"},
      {"<data>A</data>", "\"A\" is not base64"},
      {"<data>AA=A</data>", "is not base64"},
      {"<data>AA=</data>", "is not base64"},
      {"<data>A*==</data>", "is not base64"},
      {"<string>&other;</string>", "undefined entity"},
  };
  for (const auto& row : rows) {
    EXPECT_THAT(reasonOf(std::string("<plist>") + row.inside + "</plist>"), HasSubstr(row.cause))
        << row.inside;
  }
}

TEST(XmlPropertyList, ErrorsNameLineAndOffset) {
  EXPECT_THAT(reasonOf("<plist>\n<dict>\n<thing/>"),
              StartsWith("XML property list, line 3, offset 15: unknown element"));
  EXPECT_THAT(reasonOf("<plist><true>"), StartsWith("XML property list, line 1, offset 13: "));
}

TEST(XmlPropertyList, TheLastOfTwoEqualKeysWinsInTheFirstOnesPlace) {
  EXPECT_EQ(description(readXml("<dict><key>a</key><integer>1</integer><key>b</key><integer>2</integer>"
                                "<key>a</key><integer>3</integer></dict>")),
            "{a = 3; b = 2}");
}

TEST(XmlPropertyList, SkipsADocumentTypeUnread) {
  const std::string declared = documentType("PUBLIC \"-//None//None\" \"file:///nonexistent/plist.dtd\"");
  EXPECT_EQ(readPropertyList("<?xml version=\"1.0\"?>\n" + declared + "<plist><true/></plist>"), Value(true));
}

TEST(XmlPropertyList, RefusesEntityDeclarations) {
  const std::string bomb =
      documentType("[<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;\">]");
  EXPECT_THAT(reasonOf(bomb + "<plist><string>&b;</string></plist>"),
              HasSubstr("entity declarations are refused (\"a\")"));
  const std::string external = documentType("[<!ENTITY a SYSTEM \"file:///etc/hostname\">]");
  EXPECT_THAT(reasonOf(external + "<plist><string>&a;</string></plist>"),
              HasSubstr("entity declarations are refused"));
  const std::string parameter = documentType("[<!ENTITY % a SYSTEM \"file:///etc/hostname\"> %a;]");
  EXPECT_THAT(reasonOf(parameter + "<plist><true/></plist>"), HasSubstr("entity declarations are refused"));
}

TEST(XmlPropertyList, AnEntityThatTheUnreadDocumentTypeMightDeclareIsRefused) {
  const std::string declared = documentType("SYSTEM \"file:///nonexistent/plist.dtd\"");
  EXPECT_THAT(reasonOf(declared + "<plist><string>&other;</string></plist>"),
              HasSubstr("the entity \"other\" is not known"));
}

TEST(XmlPropertyList, ReadsUtf16AndAMarkInFront) {
  std::string utf16 = "\xFE\xFF";
  for (const char c : std::string("<plist><string>a</string></plist>")) utf16 += {'\0', c};
  EXPECT_EQ(readPropertyList(utf16), Value("a"));
  EXPECT_EQ(readPropertyList("\xEF\xBB\xBF<plist><string>a</string></plist>"), Value("a"));
}

TEST(XmlPropertyListWriter, WritesElementsAndTabs) {
  const Value value = Dictionary{{"list", Array{1, 2.5, "a<b", true}}, {"none", Array()}, {"at", Date{0.75}}};
  EXPECT_EQ(writeXmlPropertyList(value),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<plist version=\"1.0\">\n"
            "<dict>\n"
            "\t<key>list</key>\n"
            "\t<array>\n"
            "\t\t<integer>1</integer>\n"
            "\t\t<real>2.5</real>\n"
            "\t\t<string>a&lt;b</string>\n"
            "\t\t<true/>\n"
            "\t</array>\n"
            "\t<key>none</key>\n"
            "\t<array/>\n"
            "\t<key>at</key>\n"
            "\t<date>2001-01-01T00:00:00Z</date>\n"
            "</dict>\n"
            "</plist>\n");
}

TEST(XmlPropertyListWriter, DatesDropFractionsTowardThePast) {
  EXPECT_THAT(writeXmlPropertyList(Date{-0.25}), HasSubstr("<date>2000-12-31T23:59:59Z</date>"));
  EXPECT_THAT(writeXmlPropertyList(Date{252423993599.0}), HasSubstr("<date>9999-12-31T23:59:59Z</date>"));
}

TEST(XmlPropertyListWriter, CarriageReturnsAndLongDataSurvive) {
  const Value value = Array{"a\r\nb\tc", Data(std::string(300, '\xA5'))};
  EXPECT_EQ(readPropertyList(writeXmlPropertyList(value)), value);
}

TEST(XmlPropertyListWriter, RefusesWhatXmlCannotCarry) {
  const struct {
    const char* phrase;
    Value value;
  } rows[] = {{"a URL", Array{Url{"http://a/"}}},
              {"a control character", "\x01"},
              {"a NUL", std::string_view("\0", 1)},
              {"an unpaired surrogate", "\xED\xA0\xBD"},
              {"U+FFFE", "\uFFFE"},
              {"no UTF-8", "\xFF"},
              {"a control character in a key", Dictionary{{"\x1F", 1}}},
              {"the year 10000", Date{252423993600.0}},
              {"the year 0", Date{-63113904000.5}},
              {"no date", Date{std::nan("")}}};
  for (const auto& row : rows)
    EXPECT_THROW(writeXmlPropertyList(row.value), PropertyListException) << row.phrase;
}

}  // namespace
}  // namespace corvane
