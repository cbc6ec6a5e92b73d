#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {
namespace {

class Messages : public testing::Test {
 protected:
  // From now on the user's language, with the same texts for each.
  void speak(const std::string& language) {
    const Dictionary cats{{"one", "(one) %1 in %2"}, {"other", "(other) %1 in %2"}};
    platform.bundles.own.translatedTables["Messages"] = {
        language, Dictionary{{"%1 ate %2.", "<%2> was eaten by <%1>."}, {"%1 cats in %2", cats}}};
  }
  static std::string cats(std::uint64_t count) {
    return counted(count, "%1 cat in %2", "%1 cats in %2", "Ulm");
  }

  FakePlatform platform;
};

TEST_F(Messages, AreEnglishWithoutATable) {
  EXPECT_EQ(tr("Nothing was changed."), "Nothing was changed.");
  EXPECT_EQ(tr("%1 ate %2.", "Ada", 1234U), "Ada ate 1,234.");
  EXPECT_EQ(cats(0), "0 cats in Ulm");
  EXPECT_EQ(cats(1), "1 cat in Ulm");
  EXPECT_EQ(cats(1000), "1,000 cats in Ulm");
}

TEST(MessagesWithoutServices, AreEnglish) { EXPECT_EQ(tr("%1 ate %2.", "Ada", 1234U), "Ada ate 1,234."); }

TEST_F(Messages, TakeTheirValuesInTheOrderOfTheTranslation) {
  speak("de");
  EXPECT_EQ(tr("%1 ate %2.", std::string("Ada"), 1234U), "<1.234> was eaten by <Ada>.");
  EXPECT_EQ(tr("%1 ate %2.", "%2", "100 %"), "<100 %> was eaten by <%2>.") << "values are left alone";
}

TEST_F(Messages, AreEnglishWhereProgramsReadThem) {
  speak("de");
  {
    const EnglishScope english;
    EXPECT_EQ(tr("%1 ate %2.", "Ada", 1234U), "Ada ate 1,234.");
    const EnglishScope within;
  }
  EXPECT_EQ(tr("%1 ate %2.", "Ada", 1234U), "<1.234> was eaten by <Ada>.");
}

TEST_F(Messages, StayEnglishWhereTheTableLacksThem) {
  speak("de_AT");
  EXPECT_EQ(tr("Nothing was changed."), "Nothing was changed.");
  EXPECT_EQ(counted(1, "%1 dog", "%1 dogs"), "1 dog");
  EXPECT_EQ(counted(2, "%1 dog", "%1 dogs"), "2 dogs");
}

TEST_F(Messages, MadeBeforeTheLanguageIsKnownAreSaidInIt) {
  const PlatformException exception(
      "AName", Message("%1 ate %2.", Message::counted(1, "%1 cat in %2", "%1 cats in %2", "Ulm"), 1234U));
  EXPECT_EQ(exception.reason(), "1 cat in Ulm ate 1,234.");
  EXPECT_EQ(exception.what(), exception.reason());
  speak("de");
  EXPECT_EQ(tr(exception.message()), "<1.234> was eaten by <(one) 1 in Ulm>.");
  EXPECT_EQ(tr("%1 ate %2.", "Ada", exception.message()),
            "<<1.234> was eaten by <(one) 1 in Ulm>.> was eaten by <Ada>.");
  EXPECT_EQ(exception.reason(), "1 cat in Ulm ate 1,234.") << "for logs";
}

TEST_F(Messages, ThatAreNoTextsAreTheSameInEveryLanguage) {
  speak("de");
  EXPECT_EQ(tr(Message(std::string("%1 ate %2."))), "%1 ate %2.");
  EXPECT_EQ(tr(sentences(Message(), Message("%1 ate %2.", "Ada", "it"))), "<it> was eaten by <Ada>.");
  EXPECT_EQ(tr(sentences(Message("One."), Message("Two."))), "One. Two.");
}

TEST_F(Messages, SayTheirLanguageAsATag) {
  EXPECT_EQ(languageOfTexts(), "en");
  speak("de_AT");
  EXPECT_EQ(languageOfTexts(), "de-AT");
}

TEST_F(Messages, CountAsTheLanguageDoes) {
  struct {
    const char* language;
    const char* none;
    const char* one;
    const char* many;
  } const cases[] = {
      {"de_AT", "(other) 0 in Ulm", "(one) 1 in Ulm", "(other) 2 in Ulm"},
      {"es", "(other) 0 in Ulm", "(one) 1 in Ulm", "(other) 2 in Ulm"},
      {"fr-CA", "(one) 0 in Ulm", "(one) 1 in Ulm", "(other) 2 in Ulm"},
      {"ja", "(other) 0 in Ulm", "(other) 1 in Ulm", "(other) 2 in Ulm"},
      {"xx", "(other) 0 in Ulm", "(one) 1 in Ulm", "(other) 2 in Ulm"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.language);
    speak(each.language);
    EXPECT_EQ(cats(0), each.none);
    EXPECT_EQ(cats(1), each.one);
    EXPECT_EQ(cats(2), each.many);
  }
}

TEST_F(Messages, GroupNumbersAsTheLanguageDoes) {
  struct {
    const char* language;
    const char* thousand;
    const char* million;
    const char* tenths;
  } const cases[] = {
      {"en", "1,000", "12,345,678", "1,000.5"}, {"de", "1.000", "12.345.678", "1.000,5"},
      {"es", "1000", "12.345.678", "1000,5"},   {"fr", "1\u202F000", "12\u202F345\u202F678", "1\u202F000,5"},
      {"ja", "1,000", "12,345,678", "1,000.5"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.language);
    speak(each.language);
    EXPECT_EQ(grouped(999), "999");
    EXPECT_EQ(grouped(1000), each.thousand);
    EXPECT_EQ(grouped(12'345'678), each.million);
    EXPECT_EQ(withOneDecimal(1000.46), each.tenths);
  }
}

TEST_F(Messages, RoundTenthsUpToTheNextWholeNumber) {
  EXPECT_EQ(withOneDecimal(0), "0.0");
  EXPECT_EQ(withOneDecimal(1.96), "2.0");
}

}  // namespace
}  // namespace corvane
