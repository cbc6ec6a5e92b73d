#include <gtest/gtest.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/pelto/account/PlaceHub.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "tests/fakes/StrictPlatform.h"

namespace corvane::pelto {
namespace {

class PlaceHubTest : public testing::Test {
 protected:
  PlaceHubTest() {
    platform.uuids.inForm = true;
    std::filesystem::create_directory(place);
    Membership membership{{},
                          "A1C0B5A0-0F3D-4F7C-9B59-1F1B7F1F2A01",
                          1,
                          std::make_shared<AccountKey>(AccountKey::random()),
                          std::make_shared<ComputerKeys>(ComputerKeys::random()),
                          "first",
                          {kHubDataClass},
                          {}};
    writeAccount(userAccountPath(), {place, platform.uuids.newUuid(), {}, std::move(membership)});
  }

  HubPush pushAfter(const HubState& state) {
    HubRecord record;
    record.id = platform.uuids.newUuid();
    record.name = "ant";
    return {state, platform.uuids.newUuid(), {record}};
  }

  StrictPlatform platform;
  const std::string place = platform.directory / "place";
};

TEST_F(PlaceHubTest, WhereBookmarksAreSwitchedOffSinceTheChangesWereAskedForNothingIsGiven) {
  const auto hub = makePlaceHub(*userAccount(), 60);
  const HubState state = hub->remoteChanges({}).now;
  enableDataClass(*userAccount(), kHubDataClass, false);
  EXPECT_EQ(hub->push(pushAfter(state)).outcome, HubPushed::Outcome::overtaken);
  EXPECT_FALSE(hub->remoteChanges({}).enabled);
  enableDataClass(*userAccount(), kHubDataClass, true);
  EXPECT_EQ(hub->remoteChanges({}).now, state);
  EXPECT_TRUE(hub->push(pushAfter(state)));
}

}  // namespace
}  // namespace corvane::pelto
