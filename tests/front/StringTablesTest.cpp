#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"

namespace corvane {
namespace {

Dictionary table(const std::string& language, const std::string& name) {
  LinuxFileSystem files;
  std::string contents;
  EXPECT_FALSE(
      files.read(std::string(CORVANE_RESOURCES) + "/" + language + ".lproj/" + name + ".strings", contents));
  const Value value = readPropertyList(contents);
  return *value.as<Dictionary>();
}

// The conversions of a message, in order: "%@%s".
std::string conversions(std::string_view text) {
  std::string found;
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] == '%') found += text.substr(i, 2);
  }
  return found;
}

class StringTables : public ::testing::TestWithParam<const char*> {};

TEST_P(StringTables, EnglishIsTheKey) {
  const Dictionary english = table("en", GetParam());
  EXPECT_GT(english.size(), 0u);
  for (const auto& entry : english) EXPECT_EQ(entry.value.string(), entry.key);
}

TEST_P(StringTables, GermanHasEveryMessageWithItsArguments) {
  const Dictionary english = table("en", GetParam());
  const Dictionary german = table("de", GetParam());
  EXPECT_EQ(german.size(), english.size());
  for (const auto& entry : english) {
    const String text = german.string(entry.key.view());
    ASSERT_TRUE(text) << entry.key.view();
    EXPECT_NE(text, entry.key);
    EXPECT_EQ(conversions(text.view()), conversions(entry.key.view()));
  }
}

INSTANTIATE_TEST_SUITE_P(Tables, StringTables,
                         ::testing::Values("CorvaneSyncClient", "Corvane Sync Client", "Localizable"));

}  // namespace
}  // namespace corvane
