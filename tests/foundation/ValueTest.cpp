#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane {
namespace {

Value nested(std::size_t depth, Value inside) {
  for (std::size_t i = 0; i < depth; ++i) {
    if (i % 2 == 0) {
      inside = Array{std::move(inside)};
    } else {
      inside = Dictionary{{"k", std::move(inside)}};
    }
  }
  return inside;
}

TEST(Value, TwoHundredThousandNestedContainersCompareAndPrintWithoutStack) {
  constexpr std::size_t kDepth = 200000;
  const Value a = nested(kDepth, 1);
  const Value b = nested(kDepth, 1);
  const Value c = nested(kDepth, 2);
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a == c);
  EXPECT_EQ(description(a).size(), kDescriptionLimit + std::strlen("\u2026"));
}

TEST(Value, ContainersThatAreSharedOverAndOverCompareOnce) {
  const auto build = [] {
    Value value = "x";
    for (int i = 0; i < 100; ++i) value = Array{value, Dictionary{{"a", value}, {"b", value}}};
    return value;
  };
  EXPECT_TRUE(build() == build());
}

// In full this text would take 3^100 characters.
TEST(Value, ContainersThatAreSharedOverAndOverPrintWithinTheLimit) {
  for (Value value : {Value("x"), Value(""), Value(Array()), Value(Dictionary())}) {
    for (int i = 0; i < 100; ++i) value = Array{value, Dictionary{{"", value}}, value};
    const std::string text = description(value);
    EXPECT_EQ(text.size(), kDescriptionLimit + std::strlen("\u2026"));
    EXPECT_TRUE(text.ends_with("\u2026"));
  }
}

TEST(Value, ADescriptionIsCutBeyondTheLimit) {
  const std::string fitting(kDescriptionLimit - 2, 'x');
  EXPECT_EQ(description(Array{fitting}), "(" + fitting + ")");
  EXPECT_EQ(description(Array{fitting + "y"}), "(" + fitting + "y\u2026");
  EXPECT_EQ(description(Value(fitting + "abc")), fitting + "ab\u2026");
  EXPECT_EQ(description(Value(Url{String(fitting + "abc")})), fitting + "ab\u2026");
  EXPECT_EQ(description(Dictionary{{fitting + "abc", 1}, {"b", 2}}), "{" + fitting + "a\u2026");
  const std::string data = description(Value(Data(std::string(kDescriptionLimit, '\x5a'))));
  EXPECT_EQ(data.size(), kDescriptionLimit + std::strlen("\u2026"));
  EXPECT_EQ(description(Value(Array(std::vector<Value>(100000, 7)))).size(),
            kDescriptionLimit + std::strlen("\u2026"));
}

TEST(Value, ADescriptionIsCutBetweenCharacters) {
  for (std::size_t shift = 0; shift < 4; ++shift) {
    std::string text(shift, 'x');
    while (text.size() <= kDescriptionLimit) text += "\U0001F600";
    const std::string cut = description(Value(text));
    EXPECT_EQ((cut.size() - std::strlen("\u2026") - shift) % 4, 0U) << shift;
    EXPECT_GT(cut.size(), kDescriptionLimit - 4);
  }
  EXPECT_EQ(description(Value(std::string(20000, '\x80'))).size(),
            kDescriptionLimit - 3 + std::strlen("\u2026"))
      << "bytes that are no UTF-8";
}

TEST(Value, TypesAreNeverEqual) {
  const Value values[] = {1,
                          1.0,
                          true,
                          "1",
                          Date{1.0},
                          Data("1"),
                          Array{1},
                          Url{"1"},
                          Dictionary{{"1", 1}},
                          std::numeric_limits<std::uint64_t>::max()};
  for (const Value& a : values) {
    for (const Value& b : values) EXPECT_EQ(a == b, &a == &b) << a.typeName() << " " << b.typeName();
  }
}

TEST(Value, EqualityLooksAtContents) {
  EXPECT_EQ(Value(std::uint64_t{5}), Value(5));
  EXPECT_EQ(Value(Dictionary{{"a", 1}, {"b", 2}}), Value(Dictionary{{"b", 2}, {"a", 1}}));
  EXPECT_NE(Value(Dictionary{{"a", 1}}), Value(Dictionary{{"b", 1}}));
  EXPECT_NE(Value(Array{1, 2}), Value(Array{2, 1}));
  EXPECT_NE(Value(Array{1}), Value(Array{1, 1}));
  EXPECT_NE(Value(std::nan("")), Value(std::nan("")));
  EXPECT_EQ(Value(0.0), Value(-0.0));
  Dictionary emptied{{"a", 1}};
  emptied.remove("a");
  EXPECT_EQ(Value(emptied), Value(Dictionary()));
}

TEST(Value, CopiesKeepTheirContents) {
  Array first{1};
  Array second = first;
  second.append(2);
  EXPECT_EQ(first, Array{1});
  EXPECT_EQ(second, (Array{1, 2}));
  Dictionary original{{"a", 1}};
  Dictionary copy = original;
  EXPECT_TRUE(copy.isSameInstance(original));
  EXPECT_FALSE(copy.remove("z"));
  EXPECT_TRUE(copy.isSameInstance(original));
  EXPECT_TRUE(copy.remove(String("a")));
  EXPECT_EQ(original.size(), 1U);
  EXPECT_TRUE(copy.empty());
}

TEST(Value, EveryKindIsCopiedMovedAndReplacedByEveryOther) {
  const Value values[] = {1,
                          1.0,
                          true,
                          "1",
                          Date{1.0},
                          Data("1"),
                          Array{1},
                          Array(),
                          Dictionary{{"1", 1}},
                          Dictionary(),
                          Url{"1"},
                          std::numeric_limits<std::uint64_t>::max()};
  for (const Value& before : values) {
    for (const Value& after : values) {
      Value copied = before;
      EXPECT_EQ(copied, before);
      copied = after;
      EXPECT_EQ(copied, after) << before.typeName();
      Value moved = std::move(copied);
      EXPECT_EQ(moved, after);
      copied = before;
      moved = std::move(copied);
      EXPECT_EQ(moved, before) << after.typeName();
    }
  }
}

TEST(Value, APayloadIsSharedAsOftenAsThereAreValues) {
  SharedBytes* const bytes = SharedBytes::make("text", 4);
  const String text(bytes);
  EXPECT_FALSE(bytes->isShared());
  {
    const Value first = text;
    Value second = first;
    second = 1;
    const Value third = std::move(second);
    EXPECT_TRUE(bytes->isShared());
  }
  EXPECT_FALSE(bytes->isShared());
}

TEST(Value, NumbersComeAsBooleansAnd32Bits) {
  const struct {
    const char* phrase;
    Value value;
    std::optional<bool> boolean;
    std::optional<std::int32_t> integer;
  } rows[] = {
      {"boolean", true, true, 1},
      {"integer", -7, true, -7},
      {"zero", 0, false, 0},
      {"larger integers keep their low 32 bits", std::int64_t{0x1FFFFFFFF}, true, -1},
      {"unsigned integers keep their low 32 bits", 0x8000000000000003U, true, 3},
      {"reals truncate toward zero", 2.9, true, 2},
      {"negative reals truncate toward zero", -2.9, true, -2},
      {"a real that truncates to zero is not 0", 0.5, true, 0},
      {"large reals keep their low 32 bits", 4294967301.5, true, 5},
      {"reals outside 64 bits are absent", 1e300, true, std::nullopt},
      {"2^63 is outside", 0x1p63, true, std::nullopt},
      {"-2^63 is inside", -0x1p63, true, 0},
      {"no number", std::nan(""), true, std::nullopt},
      {"text is no number", "1", std::nullopt, std::nullopt},
      {"a date is no number", Date{1.0}, std::nullopt, std::nullopt},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(row.value.boolean(), row.boolean) << row.phrase;
    EXPECT_EQ(row.value.integer32(), row.integer) << row.phrase;
    const Dictionary inside{{"k", row.value}};
    EXPECT_EQ(inside.boolean("k"), row.boolean) << row.phrase;
    EXPECT_EQ(inside.integer32("k"), row.integer) << row.phrase;
  }
}

TEST(Dictionary, AnswersAbsentForMissingAndWrongTypes) {
  const Dictionary values{
      {"s", "text"}, {"a", Array{1}}, {"d", Dictionary{{"k", 1}}}, {"t", Date{5.0}}, {"n", 3}};
  EXPECT_EQ(values.string("s"), "text");
  EXPECT_EQ(values.array("a")->size(), 1U);
  EXPECT_EQ(values.dictionary("d")->integer32("k"), 1);
  EXPECT_EQ(values.date("t"), Date{5.0});
  for (const char* key : {"n", "missing"}) {
    EXPECT_FALSE(values.string(key)) << key;
    EXPECT_EQ(values.array(key), nullptr) << key;
    EXPECT_EQ(values.dictionary(key), nullptr) << key;
    EXPECT_FALSE(values.date(key)) << key;
  }
  EXPECT_FALSE(values.boolean("missing") || values.integer32("missing"));
}

TEST(Value, DescribesItselfOnOneLine) {
  const Value value = Dictionary{{"b", true},
                                 {"i", -5},
                                 {"u", std::numeric_limits<std::uint64_t>::max()},
                                 {"r", 0.1},
                                 {"s", "x"},
                                 {"data", Data("\x0a\xff")},
                                 {"list", Array{1, 2}},
                                 {"none", Array()},
                                 {"d", Dictionary()},
                                 {"url", Url{"http://a/"}},
                                 {"date", Date{0.0}}};
  EXPECT_EQ(
      description(value),
      "{b = 1; i = -5; u = 18446744073709551615; r = 0.1; s = x; data = <0aff>; list = (1, 2); none = (); "
      "d = {}; url = http://a/; date = 2001-01-01 00:00:00 +0000}");
}

TEST(String, AbsentDiffersFromEmpty) {
  EXPECT_NE(String(), String(""));
  EXPECT_EQ(String(), String());
  EXPECT_FALSE(String());
  EXPECT_TRUE(String(""));
  EXPECT_TRUE(String().empty());
  EXPECT_FALSE(String() == "");
  EXPECT_EQ(String("abc"), String(std::string("abc")));
  EXPECT_FALSE(String("abc").isSameInstance(String("abc")));
  EXPECT_EQ(String("abc").hash(), hashOf("abc"));
}

}  // namespace
}  // namespace corvane
