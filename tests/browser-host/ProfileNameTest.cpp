#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "browsers/host/ProfileName.h"

namespace corvane {
namespace {

TEST(ProfileNameTest, ProfileIsCalledAsItsFolderIs) {
  struct Case {
    const char* phrase;
    const char* browser;
    std::vector<std::string> files;
    const char* name;
  };
  const std::string firefox = "/home/u/.config/mozilla/firefox/";
  const std::string chromium = "/home/u/.config/chromium/";
  const Case cases[] = {
      {"a profile of Firefox's own making",
       "firefox",
       {"/dev/null", firefox + "abcd1234.default-esr/places.sqlite",
        firefox + "abcd1234.default-esr/cert9.db"},
       "default-esr"},
      {"one whose folder somebody has named", "firefox", {"/home/u/my.work/places.sqlite"}, "my.work"},
      {"the same file twice",
       "firefox",
       {firefox + "abcd1234.x/places.sqlite", firefox + "abcd1234.x/places.sqlite"},
       "x"},
      {"a profile of Chromium", "chromium", {"socket:[1]", chromium + "Profile 1/History"}, "Profile 1"},
      {"two profiles", "chromium", {chromium + "Default/History", chromium + "Profile 1/History"}, ""},
      {"the other browser's file", "chromium", {firefox + "abcd1234.x/places.sqlite"}, ""},
      {"nothing", "firefox", {}, ""},
  };
  for (const Case& each : cases)
    EXPECT_EQ(browsers::profileNameIn(each.browser, each.files), each.name) << each.phrase;
}

}  // namespace
}  // namespace corvane
