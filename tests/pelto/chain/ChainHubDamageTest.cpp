#include <gmock/gmock.h>

#include <filesystem>

#include "tests/kit/TestSize.h"
#include "tests/pelto/chain/ChainHubFixture.h"

namespace corvane::pelto {
namespace {

using testing::HasSubstr;

class ChainHubDamageTest : public ChainHubTest {};

TEST_F(ChainHubDamageTest, WhateverIsDoneToAnyObjectIsNamedAndNothingOfItIsTaken) {
  std::vector<HubRecord> many;
  for (int i = 0; i < 2'100; ++i) many.push_back(bookmark(10 + i, "n"));
  a->give({bookmark(1, "one")});
  a->give(many);
  a->takeIn();
  const MemoryPlace::Objects whole = place.objects;
  const auto expectNamed = [&](const std::string& name, const std::string& bytes) {
    place.objects.at(name).bytes = bytes;
    const bool isSegment = name.find("/s/") != std::string::npos;
    // Who knows the commit finds it another, and who is new needs the segment.
    const std::string failure = failureOf([&] {
      if (isSegment) computer("new")->takeIn();
      if (!isSegment) {
        std::filesystem::remove(platform.directory / "home of b/Chain.plist");
        std::filesystem::copy(platform.directory / "home of a/Chain.plist",
                              platform.directory / "home of b/Chain.plist");
        platform.clock.time.seconds += 86'401;  // the whole chain is looked at
        b->takeIn();
      }
    });
    EXPECT_THAT(failure, HasSubstr(name.substr(name.rfind('/'))));
    place.objects = whole;
    std::filesystem::remove_all(platform.directory / "home of new");
  };
  b->takeIn();
  b->chain.reset();
  a->chain.reset();
  for (const auto& [name, object] : whole) {
    SCOPED_TRACE(name);
    const std::size_t step = object.bytes.size() > 4096 ? sized(211, 4001) : sized(1, 19);
    for (std::size_t at = 0; at < object.bytes.size(); at += step) {
      std::string flipped = object.bytes;
      flipped[at] = static_cast<char>(flipped[at] ^ 1);
      expectNamed(name, flipped);
      expectNamed(name, object.bytes.substr(0, at));
    }
    for (const auto& [other, bytes] : whole) {
      if (other != name) expectNamed(name, bytes.bytes);
    }
  }
}

}  // namespace
}  // namespace corvane::pelto
