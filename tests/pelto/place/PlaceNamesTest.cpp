#include <gtest/gtest.h>

#include <string>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceNames.h"

namespace corvane::pelto {
namespace {

TEST(PlaceNamesTest, NamesAreFoldersAndAPartOfLettersDigitsAndHyphens) {
  const std::string longest(100, 'a');
  for (const std::string& name : {std::string("f/n"), std::string("f/c/12-0af3"), longest + "/" + longest})
    EXPECT_TRUE(isPlaceName(name)) << name;
  const std::string others[] = {"",
                                "f",
                                "f/",
                                "/n",
                                "f//n",
                                "f/n/",
                                "f/..",
                                "./n",
                                "F/n",
                                "f/n.tmp",
                                "f/n%2f",
                                "f/\xc3\xa4",
                                "f/n ",
                                "f/n?",
                                "f\\n",
                                longest + "a/n",
                                "f/" + longest + "a"};
  for (const std::string& name : others) EXPECT_FALSE(isPlaceName(name)) << name;
}

TEST(PlaceNamesTest, AFolderIsOneOrMoreParts) {
  EXPECT_TRUE(isPlaceFolder("f"));
  EXPECT_TRUE(isPlaceFolder("f/c"));
  EXPECT_FALSE(isPlaceFolder("f/"));
  EXPECT_EQ(folderOf("f/c/n"), "f/c");
}

TEST(PlaceNamesTest, OtherNamesAreRefused) {
  EXPECT_NO_THROW(requirePlaceName("f/n"));
  EXPECT_THROW(requirePlaceName("f/../n"), PlatformException);
  EXPECT_NO_THROW(requirePlaceFolder("f"));
  EXPECT_THROW(requirePlaceFolder(".."), PlatformException);
}

}  // namespace
}  // namespace corvane::pelto
