#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "tests/tool/scenario/RecordNames.h"
#include "tests/tool/scenario/Scenario.h"

namespace corvane::scenario {
namespace {

Dictionary withStep(Dictionary step) {
  return {{"Steps", Array{Dictionary{{"Call", "didPull"}}, std::move(step)}}};
}

Dictionary change(Dictionary record) {
  return withStep({{"Call", "applyChange"},
                   {"Entity", "Folder"},
                   {"Type", 1},
                   {"Identifier", "x"},
                   {"Record", std::move(record)}});
}

TEST(Scenario, RefusesWhatIsMalformed) {
  struct Row {
    Value scenario;
    const char* message;
  };
  const Row rows[] = {
      {"text", ": a dictionary is wanted, not a value of type string"},
      {Dictionary{{"Stepps", Array{}}}, "Stepps: there is no such key here"},
      {Dictionary{{"Steps", "none"}}, "Steps: an array is wanted, not a value of type string"},
      {Dictionary{{"ClientId", 5}}, "ClientId: a string is wanted, not a value of type integer"},
      {Dictionary{{"BookmarksDate", 5}}, "BookmarksDate: a date is wanted, not a value of type integer"},
      {Dictionary{{"UUIDs", Array{"a", 5}}}, "UUIDs[1]: a string is wanted, not a value of type integer"},
      {Dictionary{{"Preferences", Dictionary{{"Other", 1}}}}, "Preferences.Other: there is no such key here"},
      {Dictionary{{"BrowserWrites", Array{Dictionary{{"Bookmark", 1}}}}},
       "BrowserWrites[0].Bookmark: there is no such key here"},
      {withStep({}), "Steps[1].Call: a string is missing"},
      {withStep({{"Call", "pull"}}), "Steps[1].Call: there is no call \"pull\""},
      {withStep({{"Call", "records"}}), "Steps[1].Entity: a string is missing"},
      {withStep({{"Call", "didPull"}, {"Entity", "Folder"}}), "Steps[1].Entity: there is no such key here"},
      {withStep({{"Call", "applyChange"}, {"Entity", "Folder"}}), "Steps[1].Type: an integer is missing"},
      {withStep({{"Call", "applyChange"}, {"Entity", "Folder"}, {"Type", "1"}}),
       "Steps[1].Type: an integer is wanted, not a value of type string"},
      {withStep({{"Call", "applyChange"}, {"Entity", "Folder"}, {"Type", std::int64_t{1} << 40}}),
       "Steps[1].Type: an integer of 32 bits is wanted"},
      {withStep({{"Call", "applyChange"}, {"Entity", "Folder"}, {"Type", 1}}),
       "Steps[1].Identifier: a string is missing"},
      {change({{"LoomerAttribute_Bookmarks_Folder_Colour", "red"}}),
       "Steps[1].Record.LoomerAttribute_Bookmarks_Folder_Colour: there is no such constant"},
      {change({{"LoomerRecordEntityNameKey", "Tag"}}),
       "Steps[1].Record.LoomerRecordEntityNameKey: \"Folder\" or \"Bookmark\" is wanted"},
  };
  for (const Row& row : rows) {
    try {
      readScenario(row.scenario);
      ADD_FAILURE() << "accepted, but: " << row.message;
    } catch (const MalformedScenario& exception) {
      EXPECT_STREQ(exception.what(), row.message);
    }
  }
}

TEST(Scenario, HasDefaults) {
  const Scenario scenario = readScenario(Dictionary());
  EXPECT_EQ(scenario.clientId, "com.keldra.Corvane");
  EXPECT_FALSE(scenario.bookmarks);
  EXPECT_EQ(scenario.bookmarksDate, Date{1000.0});
  EXPECT_TRUE(scenario.sessionResult);
  EXPECT_EQ(scenario.sessionError, "scripted");
}

TEST(RecordNames, TranslateBothWays) {
  const Dictionary written{
      {"LoomerRecordEntityNameKey", "Bookmark"},
      {"LoomerAttribute_Bookmarks_Bookmark_Name", "N"},
      {"LoomerAttribute_Bookmarks_Bookmark_Url", Dictionary{{"URL", "http://a.example/"}}},
      {"LoomerRelationship_Bookmarks_Bookmark_Parent", Array{"p"}},
      {"is tab group", 1}};
  const Dictionary record = recordFromScenario(written);
  EXPECT_EQ(record.string(LoomerRecordEntityNameKey.view()), LoomerEntity_Bookmarks_Bookmark);
  ASSERT_TRUE(record.find(LoomerAttribute_Bookmarks_Bookmark_Url));
  EXPECT_TRUE(record.find(LoomerAttribute_Bookmarks_Bookmark_Url)->as<Url>());
  EXPECT_TRUE(record.find("is tab group"));
  EXPECT_EQ(recordForResult(record), written);
}

TEST(RecordNames, SharedStringsAreNamedByTheEntity) {
  const Dictionary parent{{LoomerRelationship_Bookmarks_Folder_Parent, Array{"p"}}};
  EXPECT_TRUE(recordForResult(parent).find("LoomerRelationship_Bookmarks_Folder_Parent"));

  Dictionary bookmark = parent;
  bookmark.set(LoomerRecordEntityNameKey, LoomerEntity_Bookmarks_Bookmark);
  EXPECT_TRUE(recordForResult(bookmark).find("LoomerRelationship_Bookmarks_Bookmark_Parent"));
  EXPECT_EQ(recordForResult(bookmark).size(), 2u);
}

TEST(RecordNames, LaterOfTwoParentsWins) {
  const Dictionary record =
      recordFromScenario({{"LoomerRelationship_Bookmarks_Bookmark_Parent", Array{"first"}},
                          {"LoomerRelationship_Bookmarks_Folder_Parent", Array{"second"}}});
  EXPECT_EQ(record.array(LoomerRelationship_Bookmarks_Folder_Parent.view())->begin()->string(), "second");
}

TEST(RecordNames, OtherEntitiesPass) {
  EXPECT_EQ(entityFromWord("Folder"), LoomerEntity_Bookmarks_Folder);
  EXPECT_EQ(entityFromWord("Bookmark"), LoomerEntity_Bookmarks_Bookmark);
  EXPECT_EQ(entityFromWord("Tag"), "Tag");
}

}  // namespace
}  // namespace corvane::scenario
