// Acquiring the lock, as a table: results, counts of sleeps, questions to the delegate, what stands on disk.

#include <gmock/gmock.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/store/StoreTest.h"

namespace corvane {
namespace {

using Action = FileLockerAction;
using Result = FileLockerResult;
using testing::Each;
using testing::SizeIs;

struct LockCase {
  const char* phrase;
  Value (*details)();  // what is in "details.plist"; null for the lock directory alone
  double timeout;
  std::vector<Action> answers;
  Result result;
  std::size_t sleeps;
  std::vector<unsigned> attempts;  // of the questions to the delegate

  friend void PrintTo(const LockCase& row, std::ostream* out) { *out << row.phrase; }
};

Value living() { return detailsOf(kLivingProcess); }
Value dead() { return detailsOf(kDeadProcess); }

Value deadWithout(const char* key) {
  Dictionary details = detailsOf(kDeadProcess);
  details.remove(key);
  return details;
}

constexpr Action kBreak = Action::breakLock;
constexpr Action kWait = Action::waitAgain;
constexpr Action kGiveUp = Action::giveUp;
constexpr Result kBroken = Result::acquiredByBreaking;
constexpr Result kNotHad = Result::gaveUp;

// clang-format off
const LockCase kLockCases[] = {
    {"a lock left by a crashed process on the same host is broken at the first poll, without sleeping",
     dead, 10, {}, kBroken, 0, {}},
    {"a living holder is waited for 50 polls, asked with attempt 1, on answer 1 waits another 50, attempt 2, answer 2",
     living, 10, {kWait, kGiveUp}, kNotHad, 100, {1, 2}},
    {"answer 0 breaks a living holder's lock, and breaking wins over waiting in the result",
     living, 10, {kBreak}, kBroken, 50, {1}},
    {"waiting again and then breaking",
     living, 1, {kWait, kWait, kBreak}, kBroken, 15, {1, 2, 3}},
    {"any other answer gives up: 7", living, 1, {Action{7}}, kNotHad, 5, {1}},
    {"any other answer gives up: -1", living, 1, {Action{-1}}, kNotHad, 5, {1}},
    {"without a readable details.plist the whole timeout is waited, then broken without asking: no file",
     nullptr, 10, {}, kBroken, 50, {}},
    {"without a readable details.plist the whole timeout is waited, then broken without asking: an array",
     [] { return Value(Array{1, 2}); }, 10, {}, kBroken, 50, {}},
    {"a lock file naming another host is never judged invalid, even if that process does not exist here",
     [] { return Value(detailsOf(kDeadProcess, "otherhost")); }, 10, {kGiveUp}, kNotHad, 50, {1}},
    {"host names compare exactly",
     [] { return Value(detailsOf(kDeadProcess, "LOCALHOST")); }, 1, {kGiveUp}, kNotHad, 5, {1}},
    {"an absent host name matches",
     [] { return deadWithout(kLockFileHostname); }, 10, {}, kBroken, 0, {}},
    {"a host name of a wrong type counts as absent",
     [] { return Value(detailsOf(kDeadProcess, 17)); }, 10, {}, kBroken, 0, {}},
    {"no process id: not judged invalid",
     [] { return deadWithout(kLockFileProcessID); }, 1, {kGiveUp}, kNotHad, 5, {1}},
    {"a process id that is a string counts as absent",
     [] { return Value(detailsOf("4712")); }, 1, {kGiveUp}, kNotHad, 5, {1}},
    {"a process id that is a boolean is 1 or 0, here that of no living process",
     [] { return Value(detailsOf(true)); }, 10, {}, kBroken, 0, {}},
    {"a process id that is a real is truncated",
     [] { return Value(detailsOf(kLivingProcess + 0.9)); }, 1, {kGiveUp}, kNotHad, 5, {1}},
    {"a process id beyond 32 bits keeps its low ones",
     [] { return Value(detailsOf((std::int64_t{1} << 32) + kLivingProcess)); }, 1, {kGiveUp}, kNotHad, 5, {1}},
    {"a process that may not be signalled is not known to be dead",
     [] { return Value(detailsOf(kUndeterminedProcess)); }, 1, {kGiveUp}, kNotHad, 5, {1}},
    {"a timeout of 0 asks the delegate at the first failed try", living, 0, {kGiveUp}, kNotHad, 0, {1}},
    {"a timeout of 0 and waiting again never sleeps", living, 0, {kWait, kWait, kGiveUp}, kNotHad, 0, {1, 2, 3}},
    {"a timeout of 0 breaks a dead holder's lock without asking", dead, 0, {}, kBroken, 0, {}},
    {"a timeout of 0 breaks an unreadable lock at once", nullptr, 0, {}, kBroken, 0, {}},
    {"a negative timeout is as good as 0", living, -3, {kGiveUp}, kNotHad, 0, {1}},
    {"the number of polls is truncated: 0.59 s", living, 0.59, {kGiveUp}, kNotHad, 2, {1}},
    {"the number of polls is exact: 0.6 s", living, 0.6, {kGiveUp}, kNotHad, 3, {1}},
};
// clang-format on

class FileLockerLockTable : public StoreTest, public testing::WithParamInterface<LockCase> {
 protected:
  // Everything on disk after `lock` has answered; takes away what is not ours.
  void expectDiskAfter(const LockCase& row) {
    EXPECT_EQ(listing(guarded), (std::vector<std::string>{"lock/", "lock/details.plist"}));
    if (row.result == kNotHad) {
      EXPECT_EQ(Value(*lockOnDisk()), row.details()) << "a lock that was not had must not be touched";
      std::filesystem::remove_all(lockDirectory);
    } else {
      EXPECT_EQ(lockOnDisk()->integer32(kLockFileProcessID), platform.process.id);
    }
  }
};

TEST_P(FileLockerLockTable, EndsAsItsRowSays) {
  const LockCase& row = GetParam();
  SCOPED_TRACE(row.phrase);
  if (row.details) {
    const std::string details = writeXmlPropertyList(row.details());
    putLockBytes(&details);
  } else {
    putLockBytes(nullptr);
  }
  delegate.answers = row.answers;

  CorvaneFileLocker locker(guarded, &delegate, row.timeout);
  EXPECT_EQ(locker.lock(), row.result);

  EXPECT_THAT(platform.clock.sleeps, SizeIs(row.sleeps));
  EXPECT_THAT(platform.clock.sleeps, Each(0.2));
  EXPECT_EQ(delegate.attempts, row.attempts);
  expectDiskAfter(row);
  locker.unlock();
}

INSTANTIATE_TEST_SUITE_P(All, FileLockerLockTable, testing::ValuesIn(kLockCases));

}  // namespace
}  // namespace corvane
