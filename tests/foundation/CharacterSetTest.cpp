#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/foundation/text/CharacterSet.h"

namespace corvane {
namespace {

TEST(CharacterSet, NothingIsDecodedWithoutAConverter) { EXPECT_FALSE(decodeText("text", "no-such-set")); }

TEST(CharacterSet, TextUpToAFaultComesWithItsPlace) {
  for (const char* set : {"UTF-8", "CP1252"}) {
    const auto decoded = decodeText("ab\x81", set);
    ASSERT_TRUE(decoded) << set;
    EXPECT_EQ(decoded->text, "ab") << set;
    EXPECT_EQ(decoded->fault, 2u) << set;
  }
}

TEST(CharacterSet, CharacterThatAMarkMayFollowIsNotLostAtTheEnd) {
  // In windows-1258 and 1255 the last letter is held back until it is known whether a mark joins it.
  EXPECT_EQ(decodeText("a", "CP1258")->text, "a");
  EXPECT_EQ(decodeText("a\xEC", "CP1258")->text, "\u00e1");
  EXPECT_EQ(decodeText("\xE9", "CP1255")->text, "\u05d9");
}

TEST(CharacterSet, NothingIsNothing) {
  for (const char* set : {"UTF-8", "UTF-16LE", "CP1251"}) {
    EXPECT_EQ(decodeText("", set)->text, "");
    EXPECT_FALSE(decodeText("", set)->fault);
  }
}

}  // namespace
}  // namespace corvane
