#pragma once

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane {

// Exclusive access to a directory, among processes and among machines that share it over a network file
// system.
//
// On disk, inside the guarded directory:
//   lock/                 there while somebody holds the lock
//   lock/details.plist    who holds it (XML when written here; any flavour is read)
//   .staleLockDirectory/  where a lock that cannot be deleted is moved, as "lock-UUID"; never emptied
//
// Exclusion rests on making a directory being atomic, on network file systems too, and never on what
// "details.plist" says: the file only shows those who wait whom they wait for, and the holder whether the
// lock is still its own.
//
// A lock whose holder is known to be dead (a process of this machine that no longer exists) is broken as soon
// as it is seen; one without a readable "details.plist" once the timeout has run out; any other only if the
// delegate says so. Just before a break the file is read again, and a lock renewed in the meantime is left
// alone. What is removed then is the directory that was judged and no other
// (platform/system/locks/LockDirectory.h). Whoever writes "details.plist" or removes the directory has a hold
// on it meanwhile, so that on file systems with holds nobody comes between a look and what is done upon it.
// Elsewhere, and for programs that know of no holds, a short race is accepted: a holder that renews between
// the reading and the removal loses its lock, and finds out at its next `refresh` or `unlock`.
//
// For one thread of one process. Not counted: `lock` twice needs `unlock` once. Destroying a locker that
// holds its lock leaves the lock standing.

class CorvaneFileLocker;

/// What `CorvaneFileLocker::lock` came to.
enum class FileLockerResult : int {
  alreadyHeld = 0,           ///< by this locker; nothing was done
  acquired = 1,              ///< at the first try
  acquiredAfterWaiting = 2,  ///< at least one try found the lock held
  acquiredByBreaking = 3,    ///< after removing a lock that somebody else held
  gaveUp = 4,                ///< not acquired
};

/// What to do about a lock that is still held when the timeout has run out. Any other number means `giveUp`.
enum class FileLockerAction : int { breakLock = 0, waitAgain = 1, giveUp = 2 };

/// Keys of "details.plist".
inline constexpr const char* kLockFileUsername = "LockFileUsername";        ///< string: full name of the user
inline constexpr const char* kLockFileDate = "LockFileDate";                ///< date: when it was written
inline constexpr const char* kLockFileProcessName = "LockFileProcessName";  ///< string
inline constexpr const char* kLockFileProcessID = "LockFileProcessID";      ///< integer
inline constexpr const char* kLockFileHostname = "LockFileHostname";        ///< string: see `computeHostname`
/// Keys that a lock info has besides, both or neither: now, and the date of "details.plist", by the clock of
/// whoever keeps the file system. Their difference is the lock's age even where two machines' clocks
/// disagree.
inline constexpr const char* kCurrentDateOnFileSystem = "CurrentDateOnFileSystemKey";
inline constexpr const char* kLockFileDateOnFileSystem = "LockFileDateOnFileSystemKey";

/// What lockers ask and report to. A delegate need not take every call; not taking one is not the same as an
/// answer.
class CorvaneFileLockerDelegate {
 public:
  virtual ~CorvaneFileLockerDelegate() = default;

  virtual bool implementsActionForApparentlyAbandonedLock() const { return false; }
  virtual bool implementsLockWasStolen() const { return false; }

  /// `fileLocker:actionForApparentlyAbandonedLock:onAttempt:` A lock whose holder is not known to be dead is
  /// still held after the whole timeout. `attempt` counts from 1 within one `lock`. Only called when
  /// implemented.
  virtual FileLockerAction fileLockerActionForApparentlyAbandonedLock(CorvaneFileLocker&,
                                                                      const Dictionary& /*lockInfo*/,
                                                                      unsigned /*attempt*/) {
    return FileLockerAction::giveUp;
  }
  /// `fileLocker:lockWasStolen:` The locker's lock is no longer its own. `lockInfo` describes the new holder;
  /// null when "details.plist" could not be read. May raise, to abort the work that the lock guarded. Only
  /// called when implemented.
  virtual void fileLockerLockWasStolen(CorvaneFileLocker&, const Dictionary* /*lockInfo*/) {}
};

class CorvaneFileLocker {
 public:
  /// How long `lock` sleeps between two looks at a held lock.
  static constexpr double kPollIntervalMicroseconds = 200'000;

  /// `initWithPath:delegate:timeout:` Guards the directory `path`. `delegate` may be null, is not owned and
  /// must outlive the locker. `timeout`, in seconds, is how long a held lock is waited for before somebody is
  /// asked; a full number of poll intervals fits into it, and what is left over is not waited.
  CorvaneFileLocker(std::string path, CorvaneFileLockerDelegate* delegate, double timeout);
  CorvaneFileLocker(const CorvaneFileLocker&) = delete;
  CorvaneFileLocker& operator=(const CorvaneFileLocker&) = delete;

  /// Takes the lock, waiting as described above; afterwards it is held unless the answer is `gaveUp`. Raises
  /// NSObjectNotAvailableException, with nothing held, when the lock directory cannot be made for another
  /// reason than that it exists, or "details.plist" cannot be written (the directory is then removed again).
  /// What the delegate raises passes through. A lock that should be broken and can be neither deleted nor
  /// moved aside is one line in the system log for each call, and is waited for from then on as a living
  /// holder's; where its "details.plist" cannot be read, the delegate learns of no holder.
  FileLockerResult lock();

  /// Gives the lock up; nothing happens when it is not held. A lock that was stolen is left to the thief,
  /// after the delegate was told. A lock that cannot be removed is one line in the system log. Afterwards the
  /// lock is not held, except when the delegate raises: this passes through, and the locker goes on believing
  /// that it holds the lock.
  void unlock();

  /// Writes "details.plist" anew, with the present date; a stolen lock is not rewritten, after the delegate
  /// was told. Raises NSObjectNotAvailableException when the lock is not held, or when the file cannot be
  /// written; the lock directory is then removed, which the following `unlock` sees as theft. What the
  /// delegate raises passes through.
  void refresh();

  const std::string& path() const { return _path; }
  std::string lockDirectoryPath() const;
  std::string lockFilePath() const;

  /// What "details.plist" says now. Absent when it is not there, cannot be read or holds no dictionary; bytes
  /// that are no property list are a line in the system log besides.
  std::optional<Dictionary> lockFileContentsDictionary() const;

 protected:
  // The steps of the above, in the order in which they come into play.

  /// "localhost" on a local file system, else this machine's name, "unknownhost" when it has none. Never
  /// empty. Only where machines share the directory do names of machines meet.
  std::string computeHostname() const;
  /// Whether the guarded directory is on this machine's own disks; no, when the system does not know.
  bool isOnLocalHost() const;

  /// Makes "details.plist" with three tries one second apart. Raises NSObjectNotAvailableException when all
  /// fail, having removed the lock directory.
  void writeLockFile();
  /// Deletes the lock directory, or else moves it aside; one that is already gone counts as deleted. Raises
  /// NSObjectNotAvailableException when neither can be done.
  void removeLockFile();
  /// `createStaleLockDirectoryIfNeeded:` Makes ".staleLockDirectory" in `path`, with what is missing above
  /// it. Anything of that name counts as there. Answers whether it is there.
  bool createStaleLockDirectoryIfNeeded(const std::string& path);
  /// Deletes the lock directory, whoever holds it; failure is ignored. No part of taking or giving up a lock.
  void cleanupStaleLockDirectory();

  /// `lockIsNotValid:` Whether the holder is known to be dead: it is a process of this machine that no longer
  /// exists. No for an absent `lockDictionary`.
  bool lockIsNotValid(const Dictionary* lockDictionary) const;
  /// `matchesHostNameFromLockDictionary:` Whether `hostName` is this machine's name or absent.
  bool matchesHostNameFromLockDictionary(const String& hostName) const;
  /// `actionForApparentlyAbandonedLock:onAttempt:` What to do after the timeout: break what is unreadable
  /// (absent) or whose holder is dead, ask the delegate about others, and give up where it cannot be asked.
  FileLockerAction actionForApparentlyAbandonedLock(const Dictionary* lockDictionary, unsigned attempt);
  /// `lockInfoForDelegate:` A copy of `lockDictionary`, with the two dates on the file system when both could
  /// be had.
  Dictionary lockInfoForDelegate(const Dictionary& lockDictionary) const;

  /// Whether the lock is no longer this process's own; an unreadable "details.plist" says so too. Tells the
  /// delegate, whose exceptions pass through.
  bool checkIfLockWasStolen();

 private:
  struct Details;
  struct Acquisition;
  bool makeLock();
  bool makeLockDirectory();
  void breakLock(Acquisition& acquisition);
  void pollOnce(Acquisition& acquisition);
  void sleepOnce(Acquisition& acquisition);
  bool goOnAfterTimeout(Acquisition& acquisition);
  FileLockerAction delegatesAction(const Dictionary& lockDictionary, unsigned attempt);
  Details readDetails() const;
  std::optional<FileIdentity> standingLock() const;
  void removeLock(const std::optional<FileIdentity>& judged);
  PlatformException cannotRemove() const;
  bool tryWritingLockFile(const Dictionary& lockDictionary) const;
  bool isOwnLock(const Dictionary& lockDictionary) const;

  const std::string _path;
  const std::string _hostname;
  CorvaneFileLockerDelegate* const _delegate;
  const double _timeout;
  bool _locked = false;
};

}  // namespace corvane
