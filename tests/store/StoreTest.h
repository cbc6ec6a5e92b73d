#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/store/CorvaneFileLocker.h"
#include "tests/fakes/StrictPlatform.h"

namespace corvane {

/// Answers as a test wants, and records what it was asked and told.
class RecordingDelegate : public CorvaneFileLockerDelegate {
 public:
  bool implementsActionForApparentlyAbandonedLock() const override { return implementsAction; }
  bool implementsLockWasStolen() const override { return implementsStolen; }
  FileLockerAction fileLockerActionForApparentlyAbandonedLock(CorvaneFileLocker& locker,
                                                              const Dictionary& lockInfo,
                                                              unsigned attempt) override;
  void fileLockerLockWasStolen(CorvaneFileLocker& locker, const Dictionary* lockInfo) override;

  bool implementsAction = true;
  bool implementsStolen = true;
  std::vector<FileLockerAction> answers;    ///< in order; one question more fails the test
  std::function<void()> whileAnswering;     ///< what others do meanwhile
  std::optional<PlatformException> raised;  ///< raised when told of a theft
  std::vector<unsigned> attempts;           ///< of every question
  std::vector<Dictionary> infos;            ///< of every question
  std::vector<std::optional<Dictionary>> thefts;
  std::vector<const CorvaneFileLocker*> callers;
};

/// A locker whose steps can be called one by one.
class OpenLocker : public CorvaneFileLocker {
 public:
  using CorvaneFileLocker::actionForApparentlyAbandonedLock;
  using CorvaneFileLocker::checkIfLockWasStolen;
  using CorvaneFileLocker::cleanupStaleLockDirectory;
  using CorvaneFileLocker::computeHostname;
  using CorvaneFileLocker::CorvaneFileLocker;
  using CorvaneFileLocker::createStaleLockDirectoryIfNeeded;
  using CorvaneFileLocker::isOnLocalHost;
  using CorvaneFileLocker::lockInfoForDelegate;
  using CorvaneFileLocker::lockIsNotValid;
  using CorvaneFileLocker::matchesHostNameFromLockDictionary;
  using CorvaneFileLocker::removeLockFile;
  using CorvaneFileLocker::writeLockFile;
};

/// A guarded directory under a platform of fakes with real files. Fails a test that leaves anything else in
/// the directory than it declared, or wrote undeclared lines to the system log.
class StoreTest : public testing::Test {
 protected:
  StoreTest();
  void TearDown() override;

  /// Puts "details.plist" with `details` into the lock directory, as somebody else would.
  void putLock(const Dictionary& details) const;
  /// The same with any bytes; a null pointer makes the lock directory alone.
  void putLockBytes(const std::string* bytes) const;
  /// The whole of "details.plist", past the code under test.
  std::optional<Dictionary> lockOnDisk() const;
  static std::string contentsOf(const std::string& path);
  static void writeFile(const std::string& path, const std::string& contents);
  static Date dateOf(const std::string& path);
  static void setDate(const std::string& path, double seconds);
  /// Everything below `directory`, sorted; directories end in a slash.
  static std::vector<std::string> listing(const std::string& directory);
  /// What `call` raises, as "NAME: REASON"; empty when it raises nothing.
  static std::string raisedBy(const std::function<void()>& call);

  StrictPlatform platform;
  const std::string guarded = platform.directory / "Corvane";
  const std::string lockDirectory = guarded + "/lock";
  const std::string lockFile = lockDirectory + "/details.plist";
  RecordingDelegate delegate;
  std::vector<std::string> leftOnDisk;  ///< what the test says must be in `guarded` at its end
};

constexpr int kLivingProcess = 4711;
constexpr int kDeadProcess = 4712;
constexpr int kUndeterminedProcess = 4713;

/// A lock file's contents of somebody else.
Dictionary detailsOf(const Value& processId, const Value& hostname = "localhost");

/// What Python's own reader makes of a property list in the flavour "FMT_XML" or "FMT_BINARY": the repr of
/// the parsed dictionary with sorted keys, or the error's text.
std::string readByPython(const std::string& path, const std::string& flavour);

}  // namespace corvane
