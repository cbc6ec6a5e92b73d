#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "CorvaneSyncClient/platform/pelto/chain/KeptFile.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane::pelto::chain {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Link linkOf(std::int64_t number) {
  Link link;
  link.number = number;
  link.hash = std::string(32, static_cast<char>(number));
  link.previous = std::string(32, static_cast<char>(number - 1));
  link.pushId = "0C000000-0000-4000-8000-000000000001";
  link.givesAgain = {{7, "0C000000-0000-4000-8000-000000000007"}};
  return link;
}

class KeptFileTest : public testing::Test {
 protected:
  static KeptContents contents() {
    KeptContents contents;
    contents.kept.path = {linkOf(1), linkOf(2)};
    contents.kept.verified = 2;
    contents.kept.undecided = linkOf(3);
    contents.kept.damaged = {{"3-00", std::string(32, 'd'), Date{100}}};
    contents.kept.missing = {{"2-00", {}, Date{200}}};
    contents.kept.counted = {std::string(32, 'c'), 3, 100};
    contents.kept.surveyed = Date{300};
    contents.kept.isReviewed = true;
    contents.commit = "sealed";
    contents.segments = {{"f/s/1", "sealed too"}};
    contents.tags = {{nameOf(linkOf(2)), {linkOf(2), "\"tag\""}}};
    return contents;
  }

  FakePlatform platform;
  const KeptFile file{platform.directory / "Chain.plist", "chain"};
};

TEST_F(KeptFileTest, WhatIsWrittenIsReadAgain) {
  file.write(contents());
  const KeptContents read = file.read();
  EXPECT_EQ(read.kept, contents().kept);
  EXPECT_EQ(read.commit, "sealed");
  ASSERT_EQ(read.segments.size(), 1U);
  EXPECT_EQ(read.segments[0].name, "f/s/1");
  EXPECT_EQ(read.segments[0].bytes, "sealed too");
  ASSERT_EQ(read.tags.size(), 1U);
  EXPECT_EQ(read.tags.begin()->second.tag, "\"tag\"");
  EXPECT_THAT(platform.log.messages, IsEmpty());
}

TEST_F(KeptFileTest, WhatWasKeptOfAnotherChainIsNone) {
  file.write(contents());
  EXPECT_EQ(KeptFile(platform.directory / "Chain.plist", "another").read().kept, Kept());
  EXPECT_THAT(platform.log.messages, IsEmpty());
}

TEST_F(KeptFileTest, AFileOfWhatNoChainHasIsNotUsedAndThatIsSaid) {
  const std::function<void(Link&)> damages[] = {
      [](Link& link) { link.number = 0; },      [](Link& link) { link.number = -1; },
      [](Link& link) { link.hash.pop_back(); }, [](Link& link) { link.previous += 'x'; },
      [](Link& link) { link.attempt = -1; },    [](Link& link) { link.attempt = 1001; },
  };
  for (const auto& damage : damages) {
    for (const bool isUndecided : {true, false}) {
      SCOPED_TRACE(&damage - damages);
      KeptContents damaged = contents();
      damaged.tags.clear();
      damage(isUndecided ? *damaged.kept.undecided : damaged.kept.path.front());
      file.write(damaged);
      EXPECT_EQ(file.read().kept, Kept());
      EXPECT_THAT(platform.log.messages, ElementsAre(HasSubstr("Chain.plist can't be used")));
      platform.log.messages.clear();
    }
  }
}

}  // namespace
}  // namespace corvane::pelto::chain
