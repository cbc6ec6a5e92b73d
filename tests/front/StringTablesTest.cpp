#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"

namespace corvane {
namespace {

constexpr const char* kOtherLanguages[] = {"de", "es", "fr", "ja"};

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

TEST_P(StringTables, HaveEveryMessageInEachLanguageWithItsArguments) {
  const Dictionary english = table("en", GetParam());
  for (const char* language : kOtherLanguages) {
    SCOPED_TRACE(language);
    const Dictionary translations = table(language, GetParam());
    EXPECT_EQ(translations.size(), english.size());
    for (const auto& entry : english) {
      const String text = translations.string(entry.key.view());
      ASSERT_TRUE(text) << entry.key.view();
      EXPECT_NE(text, entry.key);
      EXPECT_EQ(conversions(text.view()), conversions(entry.key.view()));
    }
  }
}

// tests/check_messages.py looks whether the right texts stand there; this, whether the programs find them.
TEST(MessagesTables, HoldTheSameTextsToTheirReaderInEachLanguage) {
  const Dictionary english = table("en", "Messages");
  EXPECT_GT(english.size(), 0u);
  for (const char* language : kOtherLanguages) {
    SCOPED_TRACE(language);
    const Dictionary translations = table(language, "Messages");
    EXPECT_EQ(translations.size(), english.size());
    for (const auto& entry : english) {
      const bool isCounted = entry.value.as<Dictionary>() != nullptr;
      const Dictionary* const forms = translations.dictionary(entry.key.view());
      const String text = forms ? forms->string("other") : translations.string(entry.key.view());
      EXPECT_EQ(forms != nullptr, isCounted) << entry.key.view();
      EXPECT_TRUE(text) << entry.key.view();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Tables, StringTables,
                         ::testing::Values("CorvaneSyncClient", "Corvane Sync Client", "Localizable"));

}  // namespace
}  // namespace corvane
