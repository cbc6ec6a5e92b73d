// Property lists that were cut off, damaged or made to do harm.

#include <gmock/gmock.h>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/foundation/BinaryPlistBuilder.h"
#include "tests/foundation/PropertyListReason.h"

namespace corvane {
namespace {

using ::testing::HasSubstr;

Value sample() {
  return Dictionary{{"Title", "Bookmarks \u00e9 \U0001F600"},
                    {"Children", Array{Dictionary{{"", 1}, {"on", true}}, Array{}, Dictionary{}}},
                    {"numbers", Array{-1, 70000, 2.5, std::uint64_t{1} << 63}},
                    {"when", Date{790000000.0}},
                    {"data", Data(std::string(20, '\x80'))}};
}

// Answers whether the bytes were read; anything but a value or a PropertyListException fails the test.
bool reads(std::string_view bytes) {
  try {
    const Value value = readPropertyList(bytes);
    writeBinaryPropertyList(value);
    return true;
  } catch (const PropertyListException&) {
    return false;
  }
}

TEST(HostilePropertyList, EveryPrefixLoadsOrIsRefused) {
  const std::string oldText =
      "/* c */ { a = \"b\\U00e9\\n\\101\"; c = ( d, <0a0b>, { } ); // end\n 'e f' = /x; }";
  const std::string samples[] = {writeBinaryPropertyList(sample()), writeXmlPropertyList(sample()), oldText,
                                 "\"key\" = \"value\";\nother = word;\n"};
  for (const std::string& whole : samples) {
    ASSERT_TRUE(reads(whole)) << whole;
    std::size_t loaded = 0;
    for (std::size_t size = 0; size < whole.size(); ++size)
      loaded += reads(std::string(whole, 0, size)) ? 1 : 0;
    EXPECT_LT(loaded, whole.size());
  }
  // A cut-off binary or XML file is never taken for a whole one. Up to "bplis" it is a word of the plain-text
  // form; XML may lose its last line feed.
  for (std::size_t size = 0; size < samples[0].size(); ++size) {
    const bool isWord = size >= 1 && size < std::string_view("bplist").size();
    EXPECT_EQ(reads(samples[0].substr(0, size)), isWord) << size;
  }
  for (std::size_t size = 0; size + 1 < samples[1].size(); ++size) {
    EXPECT_FALSE(reads(samples[1].substr(0, size))) << size;
  }
}

TEST(HostilePropertyList, AnyByteMayBeDamaged) {
  for (const std::string& whole : {writeBinaryPropertyList(sample()), writeXmlPropertyList(sample())}) {
    std::size_t refused = 0;
    for (std::size_t at = 0; at < whole.size(); ++at) {
      for (int bit = 0; bit < 8; ++bit) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ (1 << bit));
        refused += reads(damaged) ? 0 : 1;
      }
    }
    EXPECT_GT(refused, 0U);
  }
}

Value nest(Value value, std::size_t depth) {
  for (std::size_t i = 0; i < depth; ++i) {
    if (i % 2 == 0) {
      value = Array{std::move(value)};
    } else {
      value = Dictionary{{"Children", std::move(value)}};
    }
  }
  return value;
}

// Folders in folders: every level is a dictionary in an array.
TEST(HostilePropertyList, TwentyThousandFoldersDeep) {
  const Value deep = nest("leaf", 40000);
  EXPECT_TRUE(readPropertyList(writeBinaryPropertyList(deep)) == deep);
  const std::string xml = writeXmlPropertyList(deep);
  EXPECT_LT(xml.size(), 40000U * 120);  // the indentation does not grow with the depth
  EXPECT_TRUE(readPropertyList(xml) == deep);
  std::string text = "leaf";
  std::string closing;
  for (int i = 0; i < 20000; ++i) closing += ");}";
  text = [&] {
    std::string opening;
    for (int i = 0; i < 20000; ++i) opening += "{Children=(";
    return opening + text + closing;
  }();
  EXPECT_TRUE(readPropertyList(text) == deep);
}

TEST(HostilePropertyList, NestingHasALimit) {
  const Value most = nest("leaf", kPropertyListMaximumDepth);
  EXPECT_TRUE(reads(writeBinaryPropertyList(most)));
  EXPECT_THAT(reasonOf(writeBinaryPropertyList(Array{most})),
              HasSubstr("containers nest more than 200000 deep"));
  const std::string open = std::string(kPropertyListMaximumDepth + 1, '(');
  EXPECT_THAT(reasonOf(open), HasSubstr("offset 200001: containers nest more than 200000 deep"));
  std::string xml = "<plist>";
  for (std::size_t i = 0; i <= kPropertyListMaximumDepth; ++i) xml += "<array>";
  EXPECT_THAT(reasonOf(xml), HasSubstr("containers nest more than 200000 deep"));
}

// Sharing must not hide depth: each array holds the one before it, and the top names them from the shallowest
// on.
TEST(HostilePropertyList, DepthCountsThroughSharedContainers) {
  const std::size_t count = kPropertyListMaximumDepth + 1;
  BinaryPlistBuilder builder{{}, 4, 4};
  std::string top = "\xAF\x12" + BinaryPlistBuilder::number(count, 4);
  for (std::size_t i = 1; i <= count; ++i) top += BinaryPlistBuilder::number(i, 4);
  builder.objects.push_back(top);
  builder.objects.push_back("\xA0");
  for (std::size_t i = 2; i <= count; ++i)
    builder.objects.push_back("\xA1" + BinaryPlistBuilder::number(i - 1, 4));
  EXPECT_THAT(reasonOf(builder.bytes()), HasSubstr("containers nest more than 200000 deep"));
}

// 60 arrays, each holding the next one ten times: 10^60 times `leaf` when written out, 60 arrays in memory.
std::string manyPaths(const std::string& leaf) {
  BinaryPlistBuilder builder{{}, 2, 1};
  for (int i = 0; i < 60; ++i) builder.objects.push_back("\xAA" + std::string(10, static_cast<char>(i + 1)));
  builder.objects.push_back(leaf);
  return builder.bytes();
}

TEST(HostilePropertyList, ContainersThatAreSharedOverAndOverStandOnce) {
  const std::string bytes = manyPaths("\x51x");
  const Value value = readPropertyList(bytes);
  const std::string written = writeBinaryPropertyList(value);
  EXPECT_LE(written.size(), bytes.size());
  EXPECT_TRUE(readPropertyList(written) == value);
  EXPECT_TRUE(readPropertyList(bytes) == value);
}

TEST(HostilePropertyList, EndlessXmlIsRefused) {
  const std::string yes = "\x09";  // of all values the quickest to write, a gibibyte of them
  EXPECT_THROW(writeXmlPropertyList(readPropertyList(manyPaths(yes))), PropertyListException);
}

// Every seventh byte starts a string that claims most of the file.
TEST(HostilePropertyList, OverlappingStringsCannotFillMemory) {
  constexpr std::size_t kStrings = 100000;
  BinaryPlistBuilder builder{{}, 4, 4};
  std::string bytes = "bplist00";
  std::string table;
  std::string top = "\xAF\x12" + BinaryPlistBuilder::number(kStrings, 4);
  for (std::size_t i = 1; i <= kStrings; ++i) top += BinaryPlistBuilder::number(i, 4);
  table += BinaryPlistBuilder::number(bytes.size(), 4);
  bytes += top;
  for (std::size_t i = 0; i < kStrings; ++i) {
    table += BinaryPlistBuilder::number(bytes.size(), 4);
    bytes += "\x5F\x12" + BinaryPlistBuilder::number(0x00040000, 4) + "x";
  }
  bytes += std::string(0x50000, 'x');
  EXPECT_THAT(reasonOf(bytes + table + builder.trailer(kStrings + 1, bytes.size())),
              HasSubstr("the objects overlap"));
}

}  // namespace
}  // namespace corvane
