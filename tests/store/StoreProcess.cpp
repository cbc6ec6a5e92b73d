// A process of its own for tests of the store: takes one command a line, answers each with a line, ends with
// its input.

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/time.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <string>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/store/CorvanePlistManager.h"
#include "tests/fakes/FakeBundles.h"
#include "tests/fakes/ForwardingFileSystem.h"
#include "tests/fakes/MemoryPreferences.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/RecordingNotifications.h"

namespace corvane {
namespace {

// The real time, except that a sleep is a thousandth of a second, so that holders meet often.
class ImpatientClock : public Clock {
 public:
  Date now() override { return linuxPlatform().clock.now(); }
  void sleep(double) override { linuxPlatform().clock.sleep(0.001); }
};

class Locker : public CorvaneFileLocker {
 public:
  // In effect without end: whoever holds the lock here gives it up.
  explicit Locker(const std::string& directory) : CorvaneFileLocker(directory, nullptr, 1e6) {}
  using CorvaneFileLocker::writeLockFile;
};

// Waits for living holders for as long as it takes, and remembers thefts.
class PatientDelegate : public CorvaneFileLockerDelegate {
 public:
  bool implementsActionForApparentlyAbandonedLock() const override { return true; }
  bool implementsLockWasStolen() const override { return true; }
  FileLockerAction fileLockerActionForApparentlyAbandonedLock(CorvaneFileLocker&, const Dictionary&,
                                                              unsigned) override {
    return FileLockerAction::waitAgain;
  }
  void fileLockerLockWasStolen(CorvaneFileLocker&, const Dictionary*) override { wasStolenFrom = true; }

  bool wasStolenFrom = false;
};

// A look at exclusion from outside: the kernel's own lock on a file, which nobody but a holder of the lock
// takes and which goes with its process.
class Witness {
 public:
  explicit Witness(const std::string& path) : _file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {}
  bool isAlone() const { return flock(_file, LOCK_EX | LOCK_NB) == 0; }
  void leave() const { flock(_file, LOCK_UN); }

 private:
  const int _file;
};

class StoreProcess {
 public:
  explicit StoreProcess(std::string directory) : _directory(std::move(directory)) {}

  std::string perform(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    int number = 0;
    unsigned seed = 0;
    words >> command >> number >> seed;
    if (command == "lock") return std::to_string(static_cast<int>(_locker.lock()));
    if (command == "unlock") return _locker.unlock(), "unlocked";
    if (command == "steal") return _locker.writeLockFile(), "stolen";
    if (command == "count") return count(number);
    if (command == "hammer") return hammer(number, seed);
    if (command == "read") return read();
    if (command == "save") return save(number);
    if (command == "stallInSave") return stallInSave(number);
    return "unknown command";
  }

 private:
  // Counts up the number in the file "counter", `times` times, each under the lock.
  std::string count(int times) {
    for (int i = 0; i < times; ++i) {
      _locker.lock();
      int value = 0;
      std::ifstream(_directory + "/counter") >> value;
      std::ofstream(_directory + "/counter") << value + 1;
      _locker.unlock();
    }
    return "counted";
  }

  // Takes the lock `times` times, with a line for each. Is killed at one in twenty of them, at any moment of
  // it or after it, or with the lock in its hands.
  std::string hammer(int times, unsigned seed) {
    std::mt19937 random(seed);
    PatientDelegate delegate;
    CorvaneFileLocker locker(_directory, &delegate, 10);
    const Witness witness(_directory + "/witness");
    for (int i = 0; i < times; ++i) {
      const bool dies = random() % 20 == 0;
      const bool diesHolding = dies && random() % 2 == 0;
      if (dies && !diesHolding) killIn(1 + random() % 20'000);
      locker.lock();
      if (!witness.isAlone()) return "two holders";
      if (diesHolding) raise(SIGKILL);
      witness.leave();
      locker.unlock();
      if (delegate.wasStolenFrom) return "stolen from a living holder";
      std::cout << "alone" << std::endl;
    }
    return "done";
  }

  static void killIn(unsigned microseconds) {
    const itimerval once{{}, {0, static_cast<suseconds_t>(microseconds)}};
    setitimer(ITIMER_REAL, &once, nullptr);  // whose signal nobody catches
  }

  std::string read() {
    const std::optional<Dictionary> contents = _manager.dictionary();
    return contents ? std::to_string(contents->integer32("Version").value_or(-1)) : "nothing";
  }

  std::string save(int version) {
    const Dictionary bookmarks{{"Version", version}};
    return _manager.saveBookmarks(&bookmarks, true) ? "saved" : "refused";
  }

  // Answers "stalled" with the lock held and the file not yet written, and then does nothing any more.
  std::string stallInSave(int version) {
    _files.before(FileOperation::writeAtomically, 2, [] {
      std::cout << "stalled" << std::endl;
      for (;;) pause();
    });
    return save(version);
  }

  const std::string _directory;
  ImpatientClock _clock;
  ForwardingFileSystem _files{linuxPlatform().files};
  MemoryPreferences _preferences;
  RecordingLog _log;
  RecordingNotifications _notifications;
  FakeBundles _bundles;
  Platform _platform{
      _clock,  linuxPlatform().uuids, linuxPlatform().process, _files, _preferences, _log, _notifications,
      _bundles};
  PlatformScope _scope{_platform};
  Locker _locker{_directory};
  CorvanePlistManager _manager{_directory, "Bookmarks.plist"};
};

}  // namespace
}  // namespace corvane

int main(int count, char** arguments) {
  if (count != 2) return 2;
  corvane::StoreProcess process(arguments[1]);
  for (std::string line; std::getline(std::cin, line);) {
    try {
      std::cout << process.perform(line) << std::endl;
    } catch (const corvane::PlatformException& exception) {
      std::cout << exception.name() << ": " << exception.reason() << std::endl;
    }
  }
  return 0;
}
