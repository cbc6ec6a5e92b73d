#include <gtest/gtest.h>

#include <regex>
#include <set>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "tests/fakes/SequencedUuids.h"

namespace corvane {
namespace {

TEST(UuidSource, EverySourceAnswersDifferentOnes) {
  UuidSource& random = linuxPlatform().uuids;
  SequencedUuids sequenced;
  for (UuidSource* source : std::initializer_list<UuidSource*>{&random, &sequenced}) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) seen.insert(source->newUuid().toString());
    EXPECT_EQ(seen.size(), 1000u);
  }
}

TEST(UuidSource, StringFormIsUpperCase) {
  const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  for (int i = 0; i < 100; ++i) {
    const std::string uuid = linuxPlatform().uuids.newUuid().toString();
    EXPECT_TRUE(std::regex_match(uuid, form)) << uuid;
  }
}

TEST(SequencedUuids, GivenOnesComeFirst) {
  SequencedUuids uuids;
  uuids.given = {"A", "B"};
  EXPECT_EQ(uuids.newUuid(), "A");
  EXPECT_EQ(uuids.newUuid(), "B");
  EXPECT_EQ(uuids.newUuid(), "UUID-1");
  EXPECT_EQ(uuids.newUuid(), "UUID-2");
}

}  // namespace
}  // namespace corvane
