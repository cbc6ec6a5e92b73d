#include "tools/loomerctl/Concerns.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <string_view>

#include "CorvaneSyncClient/platform/system/LogListener.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "CorvaneSyncClient/store/CorvaneFileLocker.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

// A refusal is noted as its session fails.
constexpr double kOneRunSeconds = 60;
// A save holds the directory's lock for moments.
constexpr double kLongLockSeconds = 60;
// Two clocks of one computer never differ by that, and those of a file server should not.
constexpr double kClockSeconds = 120;
// A computer that was off or asleep for the night is no concern.
constexpr double kStandstillSeconds = 86400;
// What a save and the store's log take beside the file itself.
constexpr std::uint64_t kSpareBytes = 16 << 20;

Date now() { return Platform::current().clock.now(); }

std::string syncCommand(const ClientView& view) {
  return "corvanetool --sync " + printable(view.state.identifier.view()) + " --entitynames all";
}

// How somebody goes on who has put right what a run failed of.
Way wayToTryAgain(const ClientView& view) {
  // A browser syncs by itself: when it is started, when a bookmark changes, and by its popup.
  if (isBrowser(view)) return {"loomerctl browser status", tr("says whether it finds the program")};
  return {syncCommand(view), tr("tries again")};
}

class Concerns {
 public:
  Concerns(const SyncState& state, BookmarksFiles& files) : _state(state), _files(files) {}

  std::vector<Concern> find(const std::optional<SingleRunLock::Holder>& run) {
    for (const ClientView& each : _state.clients) addRefusal(each);
    for (const ClientView& each : _state.clients) addFile(each);
    for (const ClientView& each : _state.clients) addFailure(each);
    addService();
    addStandstill();
    for (const ClientView& each : _state.clients) addPause(each);
    for (const ClientView& each : _state.clients) addOldVersion(each);
    addSingleRunLock(run);
    addDirectoryLock();
    addClock();
    addDisk(_state.storePath.substr(0, _state.storePath.rfind('/')), _state.storeBytes);
    addDisk(bookmarksDirectory(), _largestFile);
    return std::move(_concerns);
  }

 private:
  void add(const char* kind, bool needsUser, std::string text, std::vector<Way> ways = {}) {
    _concerns.push_back({kind, needsUser, std::move(text), std::move(ways)});
  }

  void addRefusal(const ClientView& view) {
    if (!isRefused(view)) return;
    const std::string id = printable(view.state.identifier.view());
    add("refused", true,
        tr("The last session of %1 was refused: it would delete %2 of %3 bookmarks and folders everywhere.",
           nameText(view), view.refusal->deletions, view.refusal->live),
        {{"loomerctl plan " + id, tr("shows them")},
         {"loomerctl approve " + id, tr("lets them go")},
         {"loomerctl restore " + id, tr("brings them back")}});
  }

  // Whether somebody has to decide.
  static bool isRefused(const ClientView& view) {
    return view.refusal && !view.refusal->approved && !view.state.resetPending && !view.state.restorePending;
  }

  void addFile(const ClientView& view) {
    const BookmarksFile* const file = _files.fileOf(view.state.identifier);
    if (!file) return;
    _largestFile = std::max(_largestFile, file->bytes);
    if (file->modified && isToCome(*file->modified))
      _future = tr("The bookmarks file %1 is of %2, which is yet to come. Is the clock right?",
                   printable(file->path), timeText(*file->modified));
    const std::string id = printable(view.state.identifier.view());
    if (file->isMissing) {
      add("file", true, tr("The bookmarks file of %1 is missing: %2.", nameText(view), printable(file->path)),
          {{"corvanetool --unregistersyncclient " + id, tr("forgets the client")}});
    } else if (!file->problem.empty()) {
      add("file", true,
          tr("The bookmarks file of %1 cannot be synced: %2", nameText(view), printable(file->problem)),
          {{syncCommand(view), tr("tries again when that is put right")}});
    }
  }

  void addFailure(const ClientView& view) {
    if (!isFailing(view) || isOnlineService(view)) return;
    const bool isRefusal =
        isRefused(view) && view.refusal->refused.seconds + kOneRunSeconds > view.failed.last.seconds;
    const BookmarksFile* const file = _files.fileOf(view.state.identifier);
    const bool isOfFile = file && (file->isMissing || !file->problem.empty());
    if (isRefusal || isOfFile) return;
    add("failing", true,
        view.failed.inARow == 1
            ? tr("The last run of %1 failed: %2", nameText(view), printable(tr(view.failed.cause)))
            : tr("The last %1 runs of %2 failed, the first on %3: %4",
                 static_cast<std::size_t>(view.failed.inARow), nameText(view), timeText(view.failed.since),
                 printable(tr(view.failed.cause))),
        {wayToTryAgain(view)});
  }

  void addPause(const ClientView& view) {
    if (!view.isPaused) return;
    add("paused", false,
        tr("%1 is paused: nothing comes from there, and nothing arrives there, until it is resumed in the "
           "extension's popup.",
           nameText(view)));
  }

  void addService() {
    if (!_state.service) return;
    const ServiceState& service = *_state.service;
    if (!service.problem.empty()) {
      return add("service", true,
                 tr("The account at the online service cannot be used: %1", printable(service.problem)),
                 {{"loomerctl account test", tr("says whether it can")}});
    }
    if (!service.isOn) return;
    addRoom(service);
    if (service.failed.inARow == 0) return;
    add("service", true,
        tr("Bookmarks are synced on this computer alone since %1, not with the online service: %2",
           timeText(service.failed.since), printable(tr(service.failed.cause))),
        {{"loomerctl account test", tr("says what is wrong")}});
  }

  void addRoom(const ServiceState& service) {
    if (service.hasRoom && service.notHeld == 0) return;
    add("room", true,
        service.hasRoom ? counted(service.notHeld,
                                  "%1 bookmark or folder stays on this computer: the account at the online "
                                  "service is full, or this is too long for it.",
                                  "%1 bookmarks and folders stay on this computer: the account at the online "
                                  "service is full, or these are too long for it.")
                        : tr("There is no room at the online service: what was changed here stays on this "
                             "computer until there is."),
        {{"loomerctl account show", tr("says at which place the account is")}});
  }

  void addStandstill() {
    if (!_state.units.timer) return;
    std::optional<Date> newest;
    for (const ClientView& each : _state.clients) newest = std::max(newest, lastTried(each));
    if (!newest || now().seconds - newest->seconds < kStandstillSeconds) return;
    add("standstill", true,
        tr("Syncing is switched on, and yet nothing was tried since %1.", timeText(*newest)),
        {{"systemctl --user status corvane-sync.timer", tr("says what the timer does")}});
  }

  void addOldVersion(const ClientView& view) {
    const BookmarksFile* const file = _files.fileOf(view.state.identifier);
    if (!file || !file->isOfOldVersion) return;
    add("oldVersion", false,
        tr("The bookmarks file %1 is of an old version, which stays as it is.", printable(file->path)));
  }

  void addSingleRunLock(const std::optional<SingleRunLock::Holder>& run) {
    if (!run || !run->isStale) return;
    add("unendedRun", false,
        run->since ? tr("A run that began on %1 has not ended: it was killed, or hangs. The next run no "
                        "longer waits for it.",
                        timeText(*run->since))
                   : tr("A run has not ended: it was killed, or hangs. The next run no longer waits "
                        "for it."));
  }

  void addDirectoryLock() {
    const std::string directory = bookmarksDirectory();
    CorvaneFileLocker locker(directory, nullptr, 0);
    const auto lock = Platform::current().files.attributesIfKnown(locker.lockDirectoryPath());
    if (!lock || now().seconds - lock->modificationDate.seconds < kLongLockSeconds) return;
    const LogListener log(LogListener::Passing::off);
    const Dictionary details = locker.lockFileContentsDictionary().value_or(Dictionary());
    const std::string holder = printable(details.string(kLockFileProcessName).view());
    add("directoryLock", false,
        tr("%1 has held the lock of %2 since %3. Nothing is saved there until it gives it up, or the "
           "next save finds it dead.",
           holder.empty() ? tr("A program") : holder, printable(directory),
           timeText(lock->modificationDate)));
  }

  static bool isToCome(const Date& date) { return date.seconds > now().seconds + kClockSeconds; }

  void addClock() {
    for (const ClientView& each : _state.clients) {
      const auto tried = lastTried(each);
      if (tried && isToCome(*tried))
        _future = tr("The last run of %1 is of %2, which is yet to come. Is the clock right?", nameText(each),
                     timeText(*tried));
    }
    if (_future) add("clock", false, *_future);
  }

  // A disk that cannot be looked at is not known to be full.
  void addDisk(const std::string& directory, std::uint64_t bytes) {
    struct statvfs disk;
    if (statvfs(directory.c_str(), &disk) != 0) return;
    const std::uint64_t free = static_cast<std::uint64_t>(disk.f_bavail) * disk.f_frsize;
    const bool isReadOnly = (disk.f_flag & ST_RDONLY) != 0;
    if ((!isReadOnly && free >= bytes + kSpareBytes) || disk.f_fsid == _reportedDisk) return;
    _reportedDisk = disk.f_fsid;
    add("disk", true,
        isReadOnly ? tr("Nothing can be written to %1: the file system is read-only.", printable(directory))
                   : tr("The disk of %1 is nearly full: %2 are free.", printable(directory), sizeText(free)));
  }

  const SyncState& _state;
  BookmarksFiles& _files;
  std::vector<Concern> _concerns;
  std::optional<std::string> _future;
  std::uint64_t _largestFile = 0;
  std::optional<unsigned long> _reportedDisk;
};

}  // namespace

std::vector<Concern> concernsIn(const SyncState& state, const std::optional<SingleRunLock::Holder>& run,
                                BookmarksFiles& files) {
  std::vector<Concern> concerns = Concerns(state, files).find(run);
  std::stable_partition(concerns.begin(), concerns.end(), [](const Concern& each) { return each.needsUser; });
  return concerns;
}

}  // namespace corvane::loomerctl
