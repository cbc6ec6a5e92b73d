#include <gtest/gtest.h>

#include <limits>

#include "CorvaneSyncClient/platform/foundation/values/Format.h"

namespace corvane {
namespace {

class DescribedNode final : public Describable {
 public:
  std::string description() const override { return "a node"; }
};

TEST(Format, PrintsEveryArgumentOnItsOwnTerms) {
  const Value value = Array{1, "two"};
  const Dictionary dictionary{{"k", "v"}};
  const Date date{0.0};
  const DescribedNode node;
  EXPECT_EQ(format("%@|%@|%@|%@|%@", value, &value, dictionary, &dictionary, Array{3}),
            "(1, two)|(1, two)|{k = v}|{k = v}|(3)");
  EXPECT_EQ(format("%@ %@ %@ %@", date, &date, node, static_cast<const Describable*>(&node)),
            "2001-01-01 00:00:00 +0000 2001-01-01 00:00:00 +0000 a node a node");
  EXPECT_EQ(format("%@ %s %@ %@ %@", "text", std::string("s"), String("S"), 5, -2.5), "text s S 5 -2.5");
}

TEST(Format, AbsentArgumentsAreNull) {
  EXPECT_EQ(format("%@ %@ %@ %@ %@ %@", String(), static_cast<const Value*>(nullptr),
                   static_cast<const Dictionary*>(nullptr), static_cast<const Date*>(nullptr),
                   static_cast<const Describable*>(nullptr), static_cast<const char*>(nullptr)),
            "(null) (null) (null) (null) (null) (null)");
}

TEST(Format, PrintsNumbersAsPrintf) {
  EXPECT_EQ(format("%d %i %u %x %5d|%-5d|%05d", -1, 2, 3U, 255, 42, 42, 42), "-1 2 3 ff    42|42   |00042");
  EXPECT_EQ(format("%f %.2f %24.18f %g", 1.5, 2.345, 0.5, 1e10),
            "1.500000 2.35     0.500000000000000000 1e+10");
  EXPECT_EQ(format("%.1f %.1f", 3, 4U), "3.0 4.0");
  EXPECT_EQ(format("%d", std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(format("%u", std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
}

TEST(Format, AConversionThatDoesNotFitItsArgumentDescribesIt) {
  EXPECT_EQ(format("%d %d", "text", 2.5), "text 2.5");
  EXPECT_EQ(format("%S %n %c %p", 1, 2, 3, 4U), "1 2 3 4");
}

TEST(Format, MissingAndSpareArguments) {
  EXPECT_EQ(format("%@ %d", "only"), "only %d");
  EXPECT_EQ(format("plain"), "plain");
  EXPECT_EQ(format("%@", "first", "second"), "first");
  EXPECT_EQ(format("100%% %@", "sure"), "100% sure");
  EXPECT_EQ(format("50%", 1), "50%");
  EXPECT_EQ(format("%5", 1), "%5");
}

}  // namespace
}  // namespace corvane
