#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/foundation/values/Date.h"

namespace corvane {
namespace {

TEST(Date, DescribesItselfInUtc) {
  const struct {
    double seconds;
    const char* expected;
  } rows[] = {{0.0, "2001-01-01 00:00:00 +0000"},
              {0.999, "2001-01-01 00:00:00 +0000"},
              {-0.001, "2000-12-31 23:59:59 +0000"},
              {99750615.0, "2004-02-29 12:30:15 +0000"},
              {-63113904000.0, "1-01-01 00:00:00 +0000"},
              {-63113904001.0, "(date -63113904001)"},
              {252423993599.0, "9999-12-31 23:59:59 +0000"},
              {252423993599.5, "9999-12-31 23:59:59 +0000"},
              {252423993600.0, "(date 252423993600)"},
              {1e300, "(date 1.0000000000000001e+300)"},
              {std::numeric_limits<double>::infinity(), "(date inf)"}};
  for (const auto& row : rows) EXPECT_EQ(description(Date{row.seconds}), row.expected);
  EXPECT_EQ(description(Date{std::nan("")}), "(date nan)");
}

TEST(Uuid, IsRandomUpperCaseAndOfVersionFour) {
  const std::string uuid = newUuidString();
  ASSERT_EQ(uuid.size(), 36U);
  for (std::size_t i = 0; i < uuid.size(); ++i) {
    const bool isHyphen = i == 8 || i == 13 || i == 18 || i == 23;
    EXPECT_NE((isHyphen ? std::string("-") : "0123456789ABCDEF").find(uuid[i]), std::string::npos) << uuid;
  }
  EXPECT_EQ(uuid[14], '4');
  EXPECT_NE(std::string("89AB").find(uuid[19]), std::string::npos);
  EXPECT_NE(newUuidString(), uuid);
}

}  // namespace
}  // namespace corvane
