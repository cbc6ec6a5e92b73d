#include <gmock/gmock.h>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"

namespace corvane {
namespace {

using ::testing::HasSubstr;

TEST(OldTextPropertyList, ReadsEveryForm) {
  const struct {
    const char* text;
    Value expected;
  } rows[] = {
      {"word", "word"},
      {"  /usr/lib:x-1.2_$ ", "/usr/lib:x-1.2_$"},
      {"\"quoted text\"", "quoted text"},
      {"'single \"quotes\"'", "single \"quotes\""},
      {R"("\n\t\"\\\r\a")", "\n\t\"\\\r\a"},
      {R"("\U00e9\U20AC")", "\u00e9\u20ac"},
      {R"("\UD83D\UDE00")", "\U0001F600"},
      {R"("\UD83Dx")", "\xED\xA0\xBDx"},
      {R"("\101\7\0601")", "A\a01"},
      {"\"\u00e9\U0001F600\"", "\u00e9\U0001F600"},
      {"<0a0b 0C>", Data("\x0a\x0b\x0c")},
      {"<>", Data("")},
      {"()", Array()},
      {"( a, \"b\", ( c ), )", Array{"a", "b", Array{"c"}}},
      {"{}", Dictionary()},
      {"{ key = value; \"other key\" = { a = (1, 2); }; }",
       Dictionary{{"key", "value"}, {"other key", Dictionary{{"a", Array{"1", "2"}}}}}},
      {"// first\n{ /* inside */ a /**/ = b; // last\n}", Dictionary{{"a", "b"}}},
      {"\"a %@\" = \"b %@\";\nc = d;\n", Dictionary{{"a %@", "b %@"}, {"c", "d"}}},
      {"/* Table */ key = (a);", Dictionary{{"key", Array{"a"}}}},
      {"\xEF\xBB\xBF"
       "a = b;",
       Dictionary{{"a", "b"}}},
      {"{ a = 1; b = 2; a = 3; }", Dictionary{{"a", "3"}, {"b", "2"}}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(readPropertyList(row.text), row.expected);
  }
}

TEST(OldTextPropertyList, ADuplicateKeyKeepsItsPlace) {
  EXPECT_EQ(description(readPropertyList("{ a = 1; b = 2; a = 3; }")), "{a = 3; b = 2}");
}

TEST(OldTextPropertyList, RefusesOtherText) {
  const struct {
    const char* text;
    const char* reason;
  } rows[] = {
      {"", "plain-text property list, offset 0: no value"},
      {" // nothing\n", "plain-text property list, offset 12: no value"},
      {"a b", "plain-text property list, offset 2: text after the value"},
      {"{ a = b }", "plain-text property list, offset 8: expected \";\""},
      {"{ a b; }", "plain-text property list, offset 4: expected \"=\""},
      {"{ a = b;", "plain-text property list, offset 8: the data ends where a value is expected"},
      {"( a b )", "plain-text property list, offset 4: expected \",\""},
      {"( a", "plain-text property list, offset 3: expected \",\""},
      {"( , )", "plain-text property list, offset 2: a value is expected"},
      {"\"abc", "plain-text property list, offset 0: string without an end"},
      {"\"abc\\", "plain-text property list, offset 5: the data ends inside an escape"},
      {"\"\\Ux\"", "plain-text property list, offset 2: an escape without digits"},
      {"\"\xFF\"", "plain-text property list, offset 1: a string that is no UTF-8"},
      {"<0a0>", "plain-text property list, offset 0: data with half a byte"},
      {"<0a", "plain-text property list, offset 0: data without an end"},
      {"( <0g> )", "plain-text property list, offset 4: data holds something that is no hexadecimal digit"},
      {"/* open", "plain-text property list, offset 0: comment without an end"},
      {"a = b", "plain-text property list, offset 5: expected \";\""},
      {"a = b; c", "plain-text property list, offset 8: expected \"=\""},
      {"=", "plain-text property list, offset 0: a value is expected"},
  };
  for (const auto& row : rows) {
    try {
      readPropertyList(row.text);
      ADD_FAILURE() << row.text << " was read";
    } catch (const PropertyListException& exception) {
      EXPECT_EQ(exception.reason(), row.reason) << row.text;
    }
  }
}

}  // namespace
}  // namespace corvane
