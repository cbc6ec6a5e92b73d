#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/system/SCLog.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/system/AnswerOfChild.h"

namespace corvane {
namespace {

// Logs three lines in a fresh process, as the switch is read once in each, and answers how often the
// preferences were consulted and what was logged.
std::string logged(const Dictionary& preferences) {
  return answerOfChild([&] {
    FakePlatform platform;
    platform.preferences.domains["com.keldra.Corvane"] = preferences;
    SCLog("first %d", 1);
    SCLog("%@ and %d%%", "100% of %@ %s", 2);
    platform.preferences.domains["com.keldra.Corvane"] = {
        {"SCLog", "YES"}};  // a change has no effect in this run
    SCLog("third");
    std::string text = std::to_string(platform.preferences.consultations) + " consulted";
    for (const std::string& line : platform.log.diagnostics) text += "\n" + line;
    for (const std::string& line : platform.log.messages) text += "\nmessage: " + line;
    return text;
  });
}

// Preference absent: nothing is logged, and the preference store is consulted only once however many calls
// follow.
TEST(SCLogSwitch, AnAbsentPreferenceIsConsultedOnceHoweverManyCallsFollow) {
  EXPECT_EQ(logged({}), "1 consulted");
}

// Preference set to the boolean true: diagnostics stay off.
TEST(SCLogSwitch, BooleanTrueStaysOff) { EXPECT_EQ(logged({{"SCLog", true}}), "1 consulted"); }

TEST(SCLogSwitch, EverythingButTheExactStringStaysOff) {
  for (const Value& value :
       {Value("yes"), Value("1"), Value(1), Value("YES "), Value("NO"), Value(Array{"YES"})}) {
    EXPECT_EQ(logged({{"SCLog", value}}), "1 consulted") << description(value);
  }
}

// Preference "YES": every call logs one line; a message whose arguments contain "%" is logged literally.
TEST(SCLogSwitch, YesLogsEachCallAndPercentSignsInArgumentsLiterally) {
  EXPECT_EQ(logged({{"SCLog", "YES"}}), "1 consulted\nfirst 1\n100% of %@ %s and 2%\nthird");
}

struct FailingPreferences : Preferences {
  std::optional<Value> value(const std::string&, const std::string&) override {
    ++consultations;
    throw std::runtime_error("broken");
  }
  bool booleanUserDefault(const std::string&) override { return false; }
  int consultations = 0;
};

TEST(SCLogSwitch, AStoreThatFailsSwitchesOffAndIsConsultedOnce) {
  EXPECT_EQ(answerOfChild([] {
              FakePlatform fakes;
              FailingPreferences preferences;
              Platform platform{fakes.clock, fakes.uuids, fakes.process,       fakes.files,
                                preferences, fakes.log,   fakes.notifications, fakes.bundles};
              const PlatformScope scope(platform);
              SCLog("first");
              SCLog("second");
              return std::to_string(preferences.consultations) + " consulted, " +
                     std::to_string(fakes.log.diagnostics.size()) + " logged";
            }),
            "1 consulted, 0 logged");
}

class CountedDescription final : public Describable {
 public:
  std::string description() const override { return std::to_string(++count); }
  mutable int count = 0;
};

TEST(SCLogSwitch, ArgumentsAreNotDescribedWhenOff) {
  const auto descriptions = [](const Dictionary& preferences) {
    return answerOfChild([&] {
      FakePlatform platform;
      platform.preferences.domains["com.keldra.Corvane"] = preferences;
      const CountedDescription object;
      SCLog("%@", static_cast<const Describable&>(object));
      return std::to_string(object.count);
    });
  };
  EXPECT_EQ(descriptions({}), "0");
  EXPECT_EQ(descriptions({{"SCLog", "YES"}}), "1");
}

}  // namespace
}  // namespace corvane
