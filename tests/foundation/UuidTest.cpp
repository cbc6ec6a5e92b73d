#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"

namespace corvane {
namespace {

TEST(Uuid, ItsBytesStandInItsTextInEitherCase) {
  const UuidBytes bytes = {0x00,   0x1F, '\x9A', '\xAB', '\xCD', '\xEF', 0x40,   0x56,
                           '\x89', 0x77, 0x01,   0x23,   0x45,   0x67,   '\xFA', '\xFF'};
  EXPECT_EQ(uuidString(bytes), "001F9AAB-CDEF-4056-8977-01234567FAFF");
  EXPECT_EQ(uuidBytes("001F9AAB-CDEF-4056-8977-01234567FAFF"), bytes);
  EXPECT_EQ(uuidBytes("001f9aab-cdef-4056-8977-01234567faff"), bytes);
}

TEST(Uuid, NoOtherTextHasBytes) {
  for (const char* text : {"", "001F9AAB-CDEF-4056-8977-01234567FAF", "001F9AAB-CDEF-4056-8977-01234567FAFFF",
                           "001F9AABCDEF-4056-8977-01234567FAFF-", "001F9AAB-CDEF-4056-8977-01234567FAFG",
                           "001F9AAB-CDEF-4056-8977+01234567FAFF", "{01F9AAB-CDEF-4056-8977-01234567FAF}"}) {
    EXPECT_EQ(uuidBytes(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace corvane
