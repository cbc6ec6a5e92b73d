#include <gtest/gtest.h>

#include "CorvaneSyncClient/platform/pelto/seal/Passphrase.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/pelto/chain/MemoryPlace.h"
#include "tools/loomerctl/Passphrases.h"

namespace corvane::loomerctl {
namespace {

constexpr pelto::PassphraseCost kCheap{1, 8 * 1024};

class PassphrasesTest : public testing::Test {
 protected:
  // What another account's computer has left under its passphrase, a minute after the one before.
  void put(const std::string& name, const std::string& passphrase) {
    const pelto::Invitation invitation{
        "", {}, {}, "A1C0B5A0-0F3D-4F7C-9B59-1F1B7F1F2A01", 1, pelto::AccountKey(std::string(32, 'K')), {}};
    place.objects["passphrase/" + name] = {pelto::sealUnderPassphrase(invitation, passphrase, kCheap),
                                           platform.clock.time};
    platform.clock.time.seconds += 60;
  }
  // The requests until the passphrase opens something; 0 where it opens nothing.
  std::size_t requestsFor(const std::string& passphrase) {
    place.requests = 0;
    return invitationUnder(*place.connect(), passphrase) ? place.requests : 0;
  }

  FakePlatform platform;
  MemoryPlace place;
};

TEST_F(PassphrasesTest, TheNewestAreTriedFirstAndNoMoreIsReadThanIsTried) {
  put("c", "the oldest of them");
  put("a", "the one between");
  put("b", "the newest of them");
  place.objects["passphrase/d"] = {"rubbish", platform.clock.time};
  place.objects["passphrase/e"] = {std::string(5 << 20, 'x'), platform.clock.time};
  EXPECT_EQ(requestsFor("the newest of them"), 2U) << "the listing and one object";
  EXPECT_EQ(requestsFor("the one between"), 3U);
  EXPECT_EQ(requestsFor("the oldest of them"), 4U);
  EXPECT_EQ(requestsFor("none of them all"), 0U);
}

}  // namespace
}  // namespace corvane::loomerctl
