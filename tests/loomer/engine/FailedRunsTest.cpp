#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/store/FailedRuns.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {
namespace {

class FailedRunsTest : public testing::Test {
 protected:
  // The cause that is read back of the one that was noted last.
  Message kept() const { return runs.all().at("c").cause; }
  // From now on the client's runs are noted in this form.
  void write(const Dictionary& noted) {
    platform.realFiles.write(path, writeBinaryPropertyList(Dictionary{{"c", noted}}));
  }

  FakePlatform platform;
  const std::string directory = platform.directory.path() + "/home";
  const std::string path = directory + "/FailedRuns.plist";
  const loomer::FailedRuns runs{directory + "/Truth.db"};
};

TEST_F(FailedRunsTest, CausesAreToldInTheLanguageOfWhoeverReadsThem) {
  const Message cause = sentences(Message("Could not read %1: %2.", "/a",
                                          Message::counted(1'000, "%1 byte of %2", "%1 bytes of %2", 2'000U)),
                                  Message("Sync again."));
  runs.note(String("c"), cause);
  EXPECT_EQ(tr(kept()), "Could not read /a: 1,000 bytes of 2,000. Sync again.");
  const Dictionary bytes{{"one", "%1 Byte von %2"}, {"other", "%1 Bytes von %2"}};
  platform.bundles.own.translatedTables["Messages"] = {
      "de", Dictionary{{"Could not read %1: %2.", "%1 ist nicht lesbar: %2."},
                       {"%1 bytes of %2", bytes},
                       {"Sync again.", "Noch einmal synchronisieren."}}};
  EXPECT_EQ(tr(kept()), "/a ist nicht lesbar: 1.000 Bytes von 2.000. Noch einmal synchronisieren.");
}

TEST_F(FailedRunsTest, CausesOfAnEarlierVersionAreToldAsTheyWere) {
  write({{"All", 2}, {"InARow", 1}, {"Cause", "it was 100%1 wrong"}});
  EXPECT_EQ(runs.all().at("c").all, 2);
  EXPECT_EQ(tr(kept()), "it was 100%1 wrong");
  runs.endRow(String("c"));
  EXPECT_EQ(tr(kept()), "it was 100%1 wrong");
}

TEST_F(FailedRunsTest, CausesInAnUnknownFormAreToldInEnglish) {
  Value deep = String("end");
  for (int i = 0; i < 1'000; ++i) deep = Dictionary{{"Text", "%1"}, {"Values", Array{deep}}};
  const Value forms[] = {Value(-1), Value(true), Dictionary{{"Text", "without values"}},
                         Dictionary{{"Text", "%1"}, {"Values", Array{Value(Array())}}}, deep};
  for (const Value& each : forms) {
    write({{"All", 1}, {"InARow", 1}, {"Cause", "in English"}, {"Message", each}});
    EXPECT_EQ(tr(kept()), "in English");
  }
}

}  // namespace
}  // namespace corvane
