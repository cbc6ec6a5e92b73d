#include <gtest/gtest.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/linux/PropertyListPreferences.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {
namespace {

// What every preferences store promises: the one of property-list files, and the one that tests use in its
// place.
class PreferencesContract : public testing::TestWithParam<bool> {
 protected:
  PreferencesContract() { _platform.makeDirectories(_platform.process.home + "/Library/Preferences"); }

  Preferences& preferences() {
    return GetParam() ? static_cast<Preferences&>(_platform.preferences) : _fromFiles;
  }

  void set(const std::string& domain, const Dictionary& values) {
    if (GetParam()) {
      _platform.preferences.domains[domain] = values;
    } else {
      ASSERT_FALSE(
          _platform.realFiles.write(_platform.process.home + "/Library/Preferences/" + domain + ".plist",
                                    writeBinaryPropertyList(values)));
    }
  }

 private:
  FakePlatform _platform;
  PropertyListPreferences _fromFiles{_platform.files, _platform.process};
};

INSTANTIATE_TEST_SUITE_P(Stores, PreferencesContract, testing::Bool(),
                         [](const auto& chosen) { return chosen.param ? "Memory" : "PropertyLists"; });

TEST_P(PreferencesContract, AValueIsThatOfItsDomainAndKey) {
  EXPECT_EQ(preferences().value("com.keldra.Corvane", "SCLog"), std::nullopt);
  set("com.keldra.Corvane", {{"SCLog", "YES"}, {"Number", 7}});
  EXPECT_EQ(preferences().value("com.keldra.Corvane", "SCLog"), Value("YES"));
  EXPECT_EQ(preferences().value("com.keldra.Corvane", "Number"), Value(7));
  EXPECT_EQ(preferences().value("com.keldra.Corvane", "Other"), std::nullopt);
  EXPECT_EQ(preferences().value("com.keldra.Other", "SCLog"), std::nullopt);
}

TEST_P(PreferencesContract, UserDefaultsAreSearchedInTheirOrder) {
  EXPECT_FALSE(preferences().booleanUserDefault("Key"));  // absent reads as false
  set(".GlobalPreferences", {{"Key", true}});
  EXPECT_TRUE(preferences().booleanUserDefault("Key"));
  set("com.keldra.Corvane", {{"Key", false}});
  EXPECT_FALSE(preferences().booleanUserDefault("Key"));
  set("com.keldra.Corvane.SyncClient", {{"Key", 1}});
  EXPECT_TRUE(preferences().booleanUserDefault("Key"));
  set("com.keldra.Elsewhere", {{"Elsewhere", true}});
  EXPECT_FALSE(preferences().booleanUserDefault("Elsewhere"));
}

TEST(Preferences, TrueTextsAndNumbersOtherThanZeroReadAsTrue) {
  for (const Value& value : {Value(true), Value(1), Value(-3), Value(0.5), Value("YES"), Value("yes"),
                             Value("True"), Value("1"), Value("-2"), Value("+4"), Value("0.1")}) {
    EXPECT_TRUE(readsAsTrue(value)) << description(value);
  }
  for (const Value& value :
       {Value(false), Value(0), Value(0.0), Value("NO"), Value("Y"), Value("false"), Value("0"), Value("0.0"),
        Value("nan"), Value("inf"), Value("-infinity"), Value(""), Value(" 1"), Value("1x"), Value(Array{}),
        Value(Dictionary{}), Value(Date{1.0}), Value(Data("1"))}) {
    EXPECT_FALSE(readsAsTrue(value)) << description(value);
  }
}

class PropertyListPreferencesFiles : public testing::Test {
 protected:
  PropertyListPreferencesFiles() { platform.makeDirectories(platform.process.home + "/Library/Preferences"); }
  std::optional<Value> valueFrom(std::string_view bytes) {
    EXPECT_FALSE(platform.realFiles.write(path, bytes));
    return PropertyListPreferences(platform.files, platform.process).value("d", "Key");
  }

  FakePlatform platform;
  std::string path = platform.process.home + "/Library/Preferences/d.plist";
};

TEST_F(PropertyListPreferencesFiles, AreReadInAnyFlavour) {
  const Dictionary values{{"Key", "text"}};
  EXPECT_EQ(valueFrom(writeBinaryPropertyList(values)), Value("text"));
  EXPECT_EQ(valueFrom(writeXmlPropertyList(values)), Value("text"));
  EXPECT_EQ(valueFrom("{ Key = text; }"), Value("text"));
}

TEST_F(PropertyListPreferencesFiles, AUserWithoutAHomeHasNone) {
  struct Homeless : FakeProcessInfo {
    std::string homeDirectory() override {
      throw PlatformException(NSObjectNotAvailableException, "no home");
    }
  } process;
  PropertyListPreferences preferences(platform.files, process);
  EXPECT_EQ(preferences.value("d", "Key"), std::nullopt);
  EXPECT_FALSE(preferences.booleanUserDefault("Key"));
}

TEST_F(PropertyListPreferencesFiles, AnUnreadableFileCountsAsAbsent) {
  EXPECT_EQ(valueFrom(""), std::nullopt);
  EXPECT_EQ(valueFrom("bplist00 and then nothing"), std::nullopt);
  EXPECT_EQ(valueFrom("{ Key = "), std::nullopt);
  EXPECT_EQ(valueFrom(writeBinaryPropertyList(Array{"Key"})), std::nullopt);
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  EXPECT_EQ(PropertyListPreferences(platform.files, platform.process).value("d", "Key"), std::nullopt);
}

}  // namespace
}  // namespace corvane
