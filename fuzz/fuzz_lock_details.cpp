// Whatever a "details.plist" holds, taking the lock ends, with one pause for each poll at least, and a lock
// that is not had stands as it stood.

#include <cstddef>
#include <cstdint>

#include "CorvaneSyncClient/store/CorvaneFileLocker.h"
#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {
namespace {

constexpr double kTimeout = 1.0;  // five polls
constexpr std::size_t kMostSleeps = 5;
constexpr int kMostRounds = 10;  // of making the directory: the polls, a break, and what a break leads to

class StoreOfOneLock {
 public:
  StoreOfOneLock() { _platform.makeDirectories(_guarded); }

  void lockAgainst(std::string_view details) {
    const std::string lock = _guarded + "/lock";
    _platform.clock.sleeps.clear();
    _platform.files.calls.clear();
    _platform.log.messages.clear();
    _platform.makeDirectories(lock);
    require(!_platform.realFiles.write(lock + "/details.plist", details), "the lock is laid out");
    const int before = _platform.files.count(FileOperation::makeDirectory);
    _platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
      const bool isRound = call.operation == FileOperation::makeDirectory;
      require(!isRound || call.number - before <= kMostRounds, "taking the lock ends");
      return std::error_code();
    };
    const FileLockerResult result = CorvaneFileLocker(_guarded, nullptr, kTimeout).lock();
    require(_platform.clock.sleeps.size() <= kMostSleeps, "no more pauses than polls");
    if (result == FileLockerResult::gaveUp) {
      std::string now;
      require(!_platform.realFiles.read(lock + "/details.plist", now) && now == details,
              "a lock that is not had stands as it stood");
    } else {
      require(result == FileLockerResult::acquiredByBreaking,
              "a lock that is there is had by breaking alone");
    }
    require(!_platform.realFiles.remove(lock), "the lock is there in the end");
  }

 private:
  FakePlatform _platform;  // whose processes, but for this one, are dead
  const std::string _guarded = _platform.directory / "Corvane";
};

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static corvane::StoreOfOneLock store;
  store.lockAgainst({reinterpret_cast<const char*>(data), size});
  return 0;
}
