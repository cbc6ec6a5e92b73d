#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/plist/BinaryPropertyListTrailer.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/foundation/BinaryPlistBuilder.h"
#include "tests/foundation/PropertyListReason.h"

namespace corvane {
namespace {

using ::testing::HasSubstr;

std::string withObject(const std::string& hex) { return BinaryPlistBuilder{{hexBytes(hex)}}.bytes(); }

Value again(const Value& value) { return readPropertyList(writeBinaryPropertyList(value)); }

TEST(BinaryPropertyList, ReadsEveryKindOfScalar) {
  const struct {
    const char* phrase;
    const char* hex;
    Value expected;
  } rows[] = {
      {"false", "08", false},
      {"true", "09", true},
      {"one byte is unsigned", "10ff", 255},
      {"two bytes are unsigned", "11ffff", 65535},
      {"four bytes are unsigned", "12ffffffff", std::int64_t{4294967295}},
      {"eight bytes are signed", "13ffffffffffffffff", -1},
      {"the least integer", "138000000000000000", std::numeric_limits<std::int64_t>::min()},
      {"sixteen bytes carry unsigned 64 bits", "140000000000000000ffffffffffffffff",
       std::numeric_limits<std::uint64_t>::max()},
      {"sixteen bytes of a small number", "1400000000000000000000000000000007", 7},
      {"sixteen bytes with a sign", "14fffffffffffffffffffffffffffffffe", -2},
      {"float", "223fc00000", 1.5},
      {"double", "233ff8000000000000", 1.5},
      {"date", "33bff8000000000000", Date{-1.5}},
      {"data", "420a0b", Data("\x0a\x0b")},
      {"no data", "40", Data("")},
      {"ASCII text", "53616263", "abc"},
      {"a count of its own", "5f1003616263", "abc"},
      {"a count of eight bytes", "5f130000000000000003616263", "abc"},
      {"UTF-16 text", "6200e920ac", "\u00e9\u20ac"},
      {"a surrogate pair is one code point", "62d83dde00", "\U0001F600"},
      {"an unpaired high surrogate keeps its three-byte form", "62d83d0041", "\xED\xA0\xBD\x41"},
      {"an unpaired low surrogate at the end", "620041de00", "\x41\xED\xB8\x80"},
      {"an empty array", "a0", Array()},
      {"an empty dictionary", "d0", Dictionary()},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.phrase);
    EXPECT_EQ(readPropertyList(withObject(row.hex)), row.expected);
    EXPECT_EQ(again(row.expected), row.expected);
  }
}

TEST(BinaryPropertyList, RefusesObjectsNamingTypeAndOffset) {
  const struct {
    const char* hex;
    const char* reason;
  } rows[] = {
      {"00", "binary property list, offset 8: object type 0x00 (null) cannot be read"},
      {"0f", "binary property list, offset 8: object type 0x0f (fill) cannot be read"},
      {"8001", "binary property list, offset 8: object type 0x80 (UID) cannot be read"},
      {"b0", "binary property list, offset 8: object type 0xb0 (ordered set) cannot be read"},
      {"c0", "binary property list, offset 8: object type 0xc0 (set) cannot be read"},
      {"70", "binary property list, offset 8: object type 0x70 (unknown) cannot be read"},
      {"1500", "binary property list, offset 8: an integer must take 1, 2, 4, 8 or 16 bytes"},
      {"1400000000000000010000000000000000",
       "binary property list, offset 8: an integer larger than 64 bits cannot be read"},
      {"14ffffffffffffffff0000000000000000",
       "binary property list, offset 8: an integer larger than 64 bits cannot be read"},
      {"2100", "binary property list, offset 8: a real must take 4 or 8 bytes"},
      {"3200000000", "binary property list, offset 8: a date must take 8 bytes"},
      {"13ffff", "binary property list, offset 8: integer reaches beyond the end of the objects"},
      {"54616263", "binary property list, offset 8: string reaches beyond the end of the objects"},
      {"626162", "binary property list, offset 8: string reaches beyond the end of the objects"},
      {"5f", "binary property list, offset 8: string reaches beyond the end of the objects"},
      {"5f11ff", "binary property list, offset 8: string reaches beyond the end of the objects"},
      {"5f5161", "binary property list, offset 9: string without a count of 1, 2, 4 or 8 bytes"},
      {"4f13ffffffffffffffff", "binary property list, offset 8: data reaches beyond the end of the objects"},
      {"af137fffffffffffffff", "binary property list, offset 8: array reaches beyond the end of the objects"},
      {"df138000000000000001",
       "binary property list, offset 8: dictionary reaches beyond the end of the objects"},
      {"5180", "binary property list, offset 8: a string marked as ASCII holds other bytes"},
      {"a101", "binary property list, offset 8: object 1 is used, but there are only 1"},
      {"a100", "binary property list, offset 8: the container at this offset contains itself"},
      {"d10000", "binary property list, offset 8: the container at this offset contains itself"},
  };
  for (const auto& row : rows) EXPECT_EQ(reasonOf(withObject(row.hex)), row.reason) << row.hex;
}

TEST(BinaryPropertyList, RefusesKeysThatAreNoText) {
  EXPECT_EQ(reasonOf(BinaryPlistBuilder{{hexBytes("d10101"), hexBytes("1007")}}.bytes()),
            "binary property list, offset 11: integer as the key of a dictionary");
  EXPECT_EQ(reasonOf(BinaryPlistBuilder{{hexBytes("d10102"), hexBytes("a0"), hexBytes("08")}}.bytes()),
            "binary property list, offset 11: container as the key of a dictionary");
}

TEST(BinaryPropertyList, ALongerReferenceCycleNamesItsOffset) {
  const BinaryPlistBuilder builder{
      {hexBytes("a101"), hexBytes("d10302"), hexBytes("a101"), hexBytes("5161")}};
  EXPECT_EQ(reasonOf(builder.bytes()),
            "binary property list, offset 10: the container at this offset contains itself");
}

TEST(BinaryPropertyList, ChecksTheTrailerBeforeAnythingElse) {
  BinaryPlistBuilder builder{{hexBytes("08")}};
  const std::string start = "bplist00\x08";
  const std::string table = BinaryPlistBuilder::number(8, 4);
  EXPECT_EQ(reasonOf(start + table + builder.trailer(1, 9)), "no exception");
  EXPECT_THAT(reasonOf(start + table + builder.trailer(~0ULL, 9)),
              HasSubstr("the offset table reaches beyond"));
  EXPECT_THAT(reasonOf(start + table + builder.trailer(2, 9)), HasSubstr("the offset table reaches beyond"));
  EXPECT_THAT(reasonOf(start + table + builder.trailer(0, 9)), HasSubstr("the top object does not exist"));
  EXPECT_THAT(reasonOf(start + table + builder.trailer(1, 7)), HasSubstr("the offset table lies outside"));
  EXPECT_THAT(reasonOf(start + table + builder.trailer(1, 14)), HasSubstr("the offset table lies outside"));
  builder.top = 1;
  EXPECT_THAT(reasonOf(start + table + builder.trailer(1, 9)), HasSubstr("the top object does not exist"));
  builder.top = 0;
  builder.offsetSize = 9;
  EXPECT_THAT(reasonOf(start + table + builder.trailer(1, 9)), HasSubstr("offsets must take"));
  builder.offsetSize = 4;
  builder.referenceSize = 0;
  EXPECT_THAT(reasonOf(start + table + builder.trailer(1, 9)), HasSubstr("object numbers must take"));
  EXPECT_THAT(reasonOf("bplist01" + std::string(40, '\0')), HasSubstr("only version 00 is known"));
  EXPECT_THAT(reasonOf("bplist00"), HasSubstr("the data ends before the trailer"));
}

TEST(BinaryPropertyList, RefusesOffsetsIntoHeaderTableAndTrailer) {
  const BinaryPlistBuilder builder{{}, 1};
  for (const int offset : {0, 7, 9, 10, 20, 255}) {
    const std::string bytes =
        "bplist00\x08" + std::string(1, static_cast<char>(offset)) + builder.trailer(1, 9);
    EXPECT_EQ(reasonOf(bytes), "binary property list, offset 9: object 0 is said to be at " +
                                   std::to_string(offset) + ", where no objects are");
  }
}

TEST(BinaryPropertyList, ReadsEveryWidthOfOffsetsAndReferences) {
  for (unsigned width = 1; width <= 8; ++width) {
    SCOPED_TRACE(width);
    const auto reference = [width](unsigned object) { return BinaryPlistBuilder::number(object, width); };
    const BinaryPlistBuilder builder{
        {"\xD1" + reference(1) + reference(2), hexBytes("516b"), hexBytes("5176")}, width, width};
    EXPECT_EQ(readPropertyList(builder.bytes()), Value(Dictionary{{"k", "v"}}));
  }
}

TEST(BinaryPropertyList, TheLastOfTwoEqualKeysWinsInTheFirstOnesPlace) {
  const BinaryPlistBuilder builder{
      {hexBytes("d3010201030402"), hexBytes("5161"), hexBytes("5162"), hexBytes("1001"), hexBytes("1002")}};
  EXPECT_EQ(description(readPropertyList(builder.bytes())), "{a = b; b = 2}");
}

TEST(BinaryPropertyList, SharedObjectsAreBuiltOnce) {
  const BinaryPlistBuilder builder{
      {hexBytes("a401010202"), hexBytes("a103"), hexBytes("53616263"), hexBytes("09")}};
  const Value value = readPropertyList(builder.bytes());
  const Array& top = *value.as<Array>();
  EXPECT_TRUE(top[0].as<Array>()->isSameInstance(*top[1].as<Array>()));
  EXPECT_TRUE(top[2].as<String>()->isSameInstance(*top[3].as<String>()));
}

std::uint64_t objectCount(const std::string& bytes) {
  std::uint64_t count = 0;
  for (std::size_t i = bytes.size() - 24; i < bytes.size() - 16; ++i) {
    count = count << 8 | static_cast<unsigned char>(bytes[i]);
  }
  return count;
}

TEST(BinaryPropertyListWriter, EqualScalarsStandOnceAndTypesStayApart) {
  const std::string text = "abc";
  const Value value =
      Array{1,          1,          1.0,       1.0,       true, true, String(text), String(text),
            Data(text), Data(text), Date{1.0}, Date{1.0}, 0.0,  -0.0, false,        std::nan("")};
  EXPECT_EQ(objectCount(writeBinaryPropertyList(value)), 1U + 6U + 4U);
  EXPECT_EQ(description(again(value)), description(value));
}

TEST(BinaryPropertyListWriter, SharedContainersStandOnceAndEqualOnesDoNot) {
  const Dictionary shared{{"k", 1}};
  const Value value = Array{shared, shared, Dictionary{{"k", 1}}};
  EXPECT_EQ(objectCount(writeBinaryPropertyList(value)), 1U + 2U + 2U);
  EXPECT_EQ(again(value), value);
}

TEST(BinaryPropertyListWriter, AKeyAndAnEqualStringStandOnce) {
  EXPECT_EQ(objectCount(writeBinaryPropertyList(Dictionary{{"k", "k"}})), 2U);
}

TEST(BinaryPropertyListWriter, NumbersTakeOneTwoFourOrEightBytes) {
  const struct {
    std::uint64_t number;
    std::size_t width;
  } rows[] = {
      {0, 1},
      {0xFF, 1},
      {0x100, 2},
      {0xFFFF, 2},
      {0x10000, 4},
      {0xFFFFFF, 4},
      {0x1000000, 4},
      {0xFFFFFFFF, 4},
      {0x100000000, 8},
      {0xFFFFFFFFFF, 8},
      {0xFFFFFFFFFFFF, 8},
      {0xFFFFFFFFFFFFFF, 8},
      {std::numeric_limits<std::uint64_t>::max(), 8},
  };
  for (const auto& row : rows) EXPECT_EQ(binaryWidthFor(row.number), row.width) << row.number;
}

using Widths = std::pair<int, int>;  // of an offset and of an object's number

Widths widthsOf(const std::string& bytes) { return {bytes[bytes.size() - 26], bytes[bytes.size() - 25]}; }

// An array of so many different numbers, which makes for one object more.
Widths widthsOfNumbers(std::size_t count) {
  std::vector<Value> values;
  for (std::size_t i = 0; i < count; ++i) values.emplace_back(static_cast<std::int64_t>(i));
  const std::string bytes = writeBinaryPropertyList(Array(values));
  EXPECT_EQ(readPropertyList(bytes), Value(Array(values)));
  return widthsOf(bytes);
}

TEST(BinaryPropertyListWriter, ObjectNumbersAreWideEnoughForTheirCount) {
  EXPECT_EQ(widthsOfNumbers(10), Widths(1, 1));
  EXPECT_EQ(widthsOfNumbers(254), Widths(2, 1));    // 255 objects
  EXPECT_EQ(widthsOfNumbers(255), Widths(2, 2));    // 256
  EXPECT_EQ(widthsOfNumbers(65534), Widths(4, 2));  // 65,535
  EXPECT_EQ(widthsOfNumbers(65535), Widths(4, 4));  // 65,536
}

// A file is not to stand in memory beside all that it is made from.
TEST(BinaryPropertyListWriter, GivesALongTextInPieces) {
  std::vector<Value> values;
  for (int i = 0; i < 100'000; ++i) values.emplace_back("text " + std::to_string(i));
  std::size_t longest = 0;
  std::string whole;
  writeBinaryPropertyList(Array{Array(values), 1}, [&](std::string_view piece) {
    longest = std::max(longest, piece.size());
    whole += piece;
  });
  EXPECT_GT(whole.size(), 1'500'000U);
  EXPECT_LT(longest, 1'000'000U);
  EXPECT_EQ(readPropertyList(whole), Value(Array{Array(values), 1}));
  EXPECT_EQ(writeBinaryPropertyList(Array{Array(values), 1}), whole);
}

TEST(BinaryPropertyListWriter, OffsetsAreWideEnoughForWhereTheTableStands) {
  const struct {
    std::size_t size;  // of the data that is the only object, behind the header, its marker and its count
    std::size_t table;
    int width;
  } rows[] = {{244, 0xFF, 1}, {245, 0x100, 2}, {65523, 0xFFFF, 2}, {65524, 0x10000, 4}};
  for (const auto& row : rows) {
    const std::string bytes = writeBinaryPropertyList(Data(std::string(row.size, 'x')));
    EXPECT_EQ(widthsOf(bytes).first, row.width) << row.size;
    EXPECT_EQ(bytes.size(), row.table + static_cast<std::size_t>(row.width) + 32) << row.size;
  }
}

TEST(BinaryPropertyListWriter, IntegersTakeAsFewBytesAsTheirSignAllows) {
  const struct {
    Value value;
    const char* hex;
  } rows[] = {{0, "1000"},
              {255, "10ff"},
              {256, "110100"},
              {65536, "1200010000"},
              {std::int64_t{1} << 32, "130000000100000000"},
              {-1, "13ffffffffffffffff"},
              {std::uint64_t{1} << 63, "1400000000000000008000000000000000"}};
  for (const auto& row : rows) {
    const std::string object = hexBytes(row.hex);
    EXPECT_EQ(writeBinaryPropertyList(row.value).substr(8, object.size()), object) << row.hex;
  }
}

TEST(BinaryPropertyListWriter, BitsOfRealsAndDatesSurvive) {
  for (const std::uint64_t bits : std::initializer_list<std::uint64_t>{
           0x7FF8000000000000U, 0x7FF8DEADBEEF0001U, 0xFFF0000000000001U, 0x8000000000000000U,
           0x0000000000000001U, 0x7FF0000000000000U, 0x41C7D784C0004189U}) {
    const double number = std::bit_cast<double>(bits);
    const Value real = again(number);
    const Value date = again(Date{number});
    EXPECT_EQ(std::bit_cast<std::uint64_t>(*real.as<double>()), bits);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(date.as<Date>()->seconds), bits);
  }
}

TEST(BinaryPropertyListWriter, TextOutsideAsciiIsUtf16) {
  EXPECT_EQ(writeBinaryPropertyList("\u00e9\U0001F600\xED\xA0\xBD").substr(8, 9),
            hexBytes("6400e9d83dde00d83d"));
}

TEST(BinaryPropertyListWriter, KeysKeepTheirOrder) {
  const Value value = Dictionary{{"z", 1}, {"", 2}, {"a", 3}, {"\u00e9", 4}};
  EXPECT_EQ(description(again(value)), "{z = 1;  = 2; a = 3; \u00e9 = 4}");
}

TEST(BinaryPropertyListWriter, RefusesUrlsAndTextThatIsNoUtf8) {
  EXPECT_THROW(writeBinaryPropertyList(Url{"http://a/"}), PropertyListException);
  EXPECT_THROW(writeBinaryPropertyList(Array{Dictionary{{"k", Url{"http://a/"}}}}), PropertyListException);
  EXPECT_THROW(writeBinaryPropertyList("\xFF"), PropertyListException);
  EXPECT_THROW(writeBinaryPropertyList(Dictionary{{"\xC3", 1}}), PropertyListException);
}

}  // namespace
}  // namespace corvane
