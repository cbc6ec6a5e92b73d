#include "tests/corvane-hub/HubClient.h"
#include "tests/corvane-hub/HubKillTest.h"

namespace corvane {

namespace {

enum class Begun { making, makingUncounted, removing };

struct KillPoint {
  const char* phrase;
  Begun begun;
  const char* injection;
};

void PrintTo(const KillPoint& row, std::ostream* out) { *out << row.phrase; }

class HubKillPoints : public HubKill, public testing::WithParamInterface<KillPoint> {
 protected:
  /// A server that is killed on its way, after what it acknowledged before.
  void beginAndBeKilled() {
    if (GetParam().begun == Begun::removing) {
      const HubProcess before(directory.path());
      ASSERT_EQ(HubClient(before.port(), token).putNew("/v1/o/f/1", contents).status, 201);
    }
    if (GetParam().begun == Begun::makingUncounted) std::filesystem::remove(account() + "/usage");
    HubProcess hub(directory.path(), {},
                   straceWith({"-o", "/dev/null", "-e", std::string("inject=") + GetParam().injection}));
    HubClient client(hub.port(), token);
    if (GetParam().begun == Begun::removing) {
      EXPECT_THROW(client.remove("/v1/o/f/1"), ConnectionEnded);
    } else {
      EXPECT_THROW(client.putNew("/v1/o/f/1", contents), ConnectionEnded);
    }
    hub.awaitEnd();
  }

  const std::string contents = std::string(70'000, 'x');
};

/// The system calls that making and removing an object takes, with the server killed as it enters one of
/// them.
TEST_P(HubKillPoints, LeaveTheUsageRightAndTheObjectWholeOrAbsent) {
  ASSERT_NO_FATAL_FAILURE(beginAndBeKilled());
  expectRightUsage();
  const HubProcess hub(directory.path());
  HubClient client(hub.port(), token);
  const HttpAnswer answer = client.get("/v1/o/f/1");
  if (answer.status == 200) {
    EXPECT_EQ(answer.body, contents);
  } else {
    EXPECT_EQ(answer.status, 404);
  }
  // The name can be taken, or is: no rest of the killed server's stands in the way.
  EXPECT_EQ(client.putNew("/v1/o/f/1", contents).status, answer.status == 200 ? 412 : 201);
  expectRightUsage();
}

INSTANTIATE_TEST_SUITE_P(
    All, HubKillPoints,
    testing::Values(KillPoint{"BeforeTheDate", Begun::making, "utimensat:signal=KILL:when=1"},
                    KillPoint{"BeforeTheBytesAreOnTheDisk", Begun::making, "fsync:signal=KILL:when=1"},
                    KillPoint{"BeforeTheCount", Begun::makingUncounted, "pwrite64:signal=KILL:when=1"},
                    KillPoint{"BeforeTheFolderIsAnnounced", Begun::making, "pwrite64:signal=KILL:when=1"},
                    KillPoint{"BeforeTheFolder", Begun::making, "mkdir:signal=KILL:when=1"},
                    KillPoint{"BeforeTheFolderIsSettled", Begun::making, "pwrite64:signal=KILL:when=2"},
                    KillPoint{"BeforeTheObjectIsAnnounced", Begun::making, "pwrite64:signal=KILL:when=3"},
                    KillPoint{"BeforeTheLink", Begun::making, "linkat:signal=KILL:when=1"},
                    KillPoint{"BeforeTheObjectIsSettled", Begun::making, "pwrite64:signal=KILL:when=4"},
                    KillPoint{"BeforeTheFolderIsOnTheDisk", Begun::making, "fsync:signal=KILL:when=2"},
                    KillPoint{"BeforeTheFoldersNameIsOnTheDisk", Begun::making, "fsync:signal=KILL:when=3"},
                    KillPoint{"BeforeTheRemovalIsAnnounced", Begun::removing, "pwrite64:signal=KILL:when=1"},
                    KillPoint{"BeforeTheRemoval", Begun::removing, "unlink:signal=KILL:when=1"},
                    KillPoint{"BeforeTheRemovalIsSettled", Begun::removing, "pwrite64:signal=KILL:when=2"}),
    [](const auto& row) { return std::string(row.param.phrase); });

}  // namespace

}  // namespace corvane
