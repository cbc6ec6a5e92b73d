#include <gmock/gmock.h>

#include <cmath>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/seal/Roster.h"

namespace corvane::pelto {
namespace {

using testing::HasSubstr;

constexpr const char* kFirst = "0D9E4C1A-7B5E-4C0E-8C39-5A3A0C0B7E11";
constexpr const char* kSecond = "6E1C0B5A-0F3D-4F7C-9B59-1F1B7F1F2A01";

RosterEntry entry(const char* computer, const std::string& name = "desk") {
  return {computer, name, std::string(32, 'k'), Date{800'000'000}};
}

Value entryValue(const char* computer) {
  return Dictionary{{"Computer", computer},
                    {"Name", "desk"},
                    {"PublicKey", Data(std::string(32, 'k'))},
                    {"LastSeen", Date{1}}};
}

// What reading the value is refused for.
std::string problemOf(const Value& value) {
  try {
    rosterFrom(value);
  } catch (const SealedFormException& exception) {
    return exception.reason();
  }
  return "none";
}

TEST(Roster, ReadsBackAsItWasWritten) {
  Roster roster;
  EXPECT_EQ(rosterFrom(valueOf(roster)), roster);
  roster.set(entry(kSecond, "Küche"));
  roster.set(entry(kFirst));
  const std::string written = writeBinaryPropertyList(valueOf(roster));
  EXPECT_EQ(rosterFrom(readPropertyList(written)), roster);
}

TEST(Roster, KeepsOneEntryForEachComputerByIdentifier) {
  Roster roster;
  roster.set(entry(kSecond));
  roster.set(entry(kFirst));
  roster.set(entry(kSecond, "attic"));
  ASSERT_EQ(roster.entries().size(), 2u);
  EXPECT_EQ(roster.entries()[0].computer, kFirst);
  ASSERT_TRUE(roster.find(kSecond));
  EXPECT_EQ(roster.find(kSecond)->name, "attic");
  EXPECT_TRUE(roster.remove(kFirst));
  EXPECT_FALSE(roster.remove(kFirst));
  EXPECT_FALSE(roster.find(kFirst));
}

TEST(Roster, TakesNoEntryThatCouldNotBeReadAgain) {
  const struct {
    const char* what;
    RosterEntry entry;
  } cases[] = {
      {"a lower-case identifier", entry("6e1c0b5a-0f3d-4f7c-9b59-1f1b7f1f2a01")},
      {"no identifier", {{}, "desk", std::string(32, 'k'), Date{1}}},
      {"no name", entry(kFirst, "")},
      {"a long name", entry(kFirst, std::string(256, 'a'))},
      {"a name that is no UTF-8", entry(kFirst, "\xFF")},
      {"a short key", {kFirst, "desk", std::string(31, 'k'), Date{1}}},
      {"no time", {kFirst, "desk", std::string(32, 'k'), Date{NAN}}},
  };
  Roster roster;
  for (const auto& each : cases) EXPECT_THROW(roster.set(each.entry), SealedFormException) << each.what;
  EXPECT_EQ(roster, Roster());
}

TEST(Roster, OtherValuesAreRefusedWithTheirPlace) {
  const struct {
    const char* what;
    Value value;
    const char* problem;
  } cases[] = {
      {"no array", Dictionary{}, "computers: not an array"},
      {"no dictionary", Array{entryValue(kFirst), Value(1)}, "computer 2: not a dictionary"},
      {"a missing key", Array{Dictionary{{"Computer", kFirst}}}, "computer 1: no \"Name\""},
      {"one twice", Array{entryValue(kFirst), entryValue(kFirst)},
       "computer 2: not in its place by identifier"},
      {"wrong order", Array{entryValue(kSecond), entryValue(kFirst)},
       "computer 2: not in its place by identifier"},
  };
  for (const auto& each : cases) EXPECT_EQ(problemOf(each.value), each.problem) << each.what;
  const struct {
    const char* key;
    Value value;
  } changes[] = {{"Computer", "me"},    {"Name", 7},           {"Name", ""},  {"PublicKey", "k"},
                 {"PublicKey", Data()}, {"LastSeen", "today"}, {"Unknown", 1}};
  for (const auto& each : changes) {
    Dictionary changed = *entryValue(kFirst).as<Dictionary>();
    changed.set(each.key, each.value);
    EXPECT_THAT(problemOf(Array{changed}), HasSubstr("computer 1: ")) << each.key;
  }
}

TEST(Roster, HoldsAThousandComputersAndNoMore) {
  Roster roster;
  char computer[37];
  for (int i = 0; i < 1000; ++i) {
    std::snprintf(computer, sizeof computer, "00000000-0000-4000-8000-%012X", i);
    roster.set(entry(computer));
  }
  EXPECT_EQ(rosterFrom(valueOf(roster)), roster);
  EXPECT_THROW(roster.set(entry(kFirst)), SealedFormException);
  roster.set(entry(computer, "the last one again"));
}

}  // namespace
}  // namespace corvane::pelto
