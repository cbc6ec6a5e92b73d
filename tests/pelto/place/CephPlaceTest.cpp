#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/pelto/place/ServerGrounds.h"

// What a real server for S3 takes besides what all places keep.

namespace corvane::pelto {
namespace {

TEST(CephPlaceTest, ABucketIsTheSameByItsPathAndByItsHost) {
  const FakePlatform platform;
  auto& ground = dynamic_cast<S3Ground&>(groundOf("ceph"));
  const std::unique_ptr<Place> byHost = ground.placeByHost(after(300)), byPath = ground.place(after(300));
  EXPECT_EQ(byHost->putNew("by-host/c/1", "contested"), Made::made);
  EXPECT_EQ(byPath->putNew("by-host/c/1", "another"), Made::present);
  byHost->put({{"by-host/s/1", "alone"}});
  EXPECT_EQ(byPath->get({{"by-host/c/1", Writing::contested, {}, 100}}).front().bytes, "contested");
  EXPECT_EQ(byHost->get({{"by-host/s/1", Writing::alone, {}, 100}}).front().bytes, "alone");
  const std::vector<PlaceObject> listed = byHost->list("by-host/c");
  ASSERT_EQ(listed.size(), 1U);
  EXPECT_EQ(listed.front().name, "by-host/c/1");
  byHost->remove({"by-host/c/1", "by-host/s/1"});
  EXPECT_TRUE(byPath->list("by-host/c").empty());
}

}  // namespace
}  // namespace corvane::pelto
