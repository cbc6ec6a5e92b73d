#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <charconv>
#include <climits>
#include <memory>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/system/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/LinuxFileSystem.h"

// An atomic write in steps: a temporary file beside the target takes the contents and reaches the disk; a
// rename puts it in the target's place; the directory reaches the disk. Then the temporary files go that
// writers of the same target left behind when they were killed.

namespace corvane {

namespace {

constexpr int kNameTries = 1000;

/// A name in the target's directory that is removed again when this object goes, unless it was given up.
class TemporaryName {
 public:
  TemporaryName() = default;
  explicit TemporaryName(std::string path) : _path(std::move(path)) {}
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(TemporaryName&& other) noexcept {
    std::swap(_path, other._path);
    return *this;
  }
  ~TemporaryName() {
    if (!_path.empty())
      ::unlink(_path.c_str());  // a name that stays is a leftover, which a later write removes
  }

  const std::string& path() const { return _path; }
  void giveUp() { _path.clear(); }

 private:
  std::string _path;
};

std::error_code errorOf(int result) { return result == 0 ? std::error_code() : lastSystemError(); }

/// The directory that holds `path`, and the last component.
struct Place {
  std::string directory;
  std::string name;

  explicit Place(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    directory = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    name = slash == std::string::npos ? path : path.substr(slash + 1);
  }
};

/// Where process ids mean what they mean here: this machine, and the set of processes that this one sees.
std::string processSpace() {
  char host[HOST_NAME_MAX + 1] = {};
  ::gethostname(host, sizeof host - 1);  // without a name all nameless machines look the same
  struct stat space {};
  ::stat("/proc/self/ns/pid", &space);  // 0 without that file system
  return std::string(host) + '/' + std::to_string(space.st_ino);
}

/// How the names of temporary files for one target begin: with a hash of the target's name, which could
/// itself be too long, and of where the process id that follows is one. The same in every process.
std::string temporaryPrefix(const std::string& targetName) {
  const std::uint64_t hash = sipHash({}, targetName + '/' + processSpace());
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
  return std::string(".corvane-") + digits + '-';
}

/// A name that no other write of this process has had. Names left behind by a killed process of the same id
/// are passed over by whoever creates the file.
std::string nextTemporaryName(const std::string& prefix) {
  static unsigned counter = 0;
  return prefix + std::to_string(::getpid()) + '-' + std::to_string(++counter) + ".tmp";
}

std::error_code createTemporary(const Place& place, mode_t mode, FileDescriptor& file, TemporaryName& name) {
  const std::string prefix = temporaryPrefix(place.name);
  for (int i = 0; i < kNameTries; ++i) {
    const std::string path = joinedPath(place.directory, nextTemporaryName(prefix));
    file = FileDescriptor(retryingInterrupted(
        [&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode); }));
    if (file) {
      name = TemporaryName(path);
      return {};
    }
    if (errno != EEXIST) return lastSystemError();
  }
  return {EEXIST, std::system_category()};
}

/// The process that made the temporary file `name`; 0 when it is none of this target's.
pid_t makerOf(std::string_view name, const std::string& prefix) {
  if (!name.starts_with(prefix) || !name.ends_with(".tmp")) return 0;
  name.remove_prefix(prefix.size());
  pid_t process = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
  return error == std::errc() && process > 0 && *end == '-' ? process : 0;
}

/// Removes temporary files for the target whose makers are dead. No failure is told: the write itself is
/// done, and what stays now goes at the next one.
void removeLeftovers(const Place& place) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(place.directory.c_str()), &::closedir);
  if (!directory) return;
  const std::string prefix = temporaryPrefix(place.name);
  while (const dirent* entry = ::readdir(directory.get())) {
    const pid_t maker = makerOf(entry->d_name, prefix);
    if (maker != 0 && ::kill(maker, 0) != 0 && errno == ESRCH) {
      ::unlinkat(::dirfd(directory.get()), entry->d_name, 0);
    }
  }
}

/// Gives `file` the old file's owner, as far as permitted, and its mode.
std::error_code takeOver(const FileDescriptor& file, const struct stat& old) {
  // An ordinary user cannot give files away, and a group only to one of the user's: what cannot be kept
  // becomes the user's own.
  [[maybe_unused]] const bool isKept = ::fchown(file.number(), old.st_uid, old.st_gid) == 0 ||
                                       ::fchown(file.number(), static_cast<uid_t>(-1), old.st_gid) == 0;
  return errorOf(::fchmod(file.number(), old.st_mode & 07777));
}

std::error_code synchronize(const FileDescriptor& file) {
  return errorOf(retryingInterrupted([&] { return ::fsync(file.number()); }));
}

/// Some file systems have no fsync for directories and say so: there is nothing to wait for then.
std::error_code synchronizeDirectory(const FileDescriptor& directory) {
  const std::error_code error = synchronize(directory);
  return error.value() == EINVAL || error.value() == ENOTSUP ? std::error_code() : error;
}

/// What stands at `path`, links followed; `hasOld` tells whether it is a regular file. Nothing being there is
/// no error, be it for a link that leads nowhere or through a file.
std::error_code examineOld(const std::string& path, struct stat& old, bool& hasOld) {
  hasOld = ::stat(path.c_str(), &old) == 0;
  if (!hasOld) return errno == ENOENT || errno == ENOTDIR ? std::error_code() : lastSystemError();
  hasOld = S_ISREG(old.st_mode);
  return {};
}

std::error_code putInPlace(const std::string& path, const Place& place, TemporaryName& temporary) {
  const FileDescriptor directory(retryingInterrupted(
      [&] { return ::open(place.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (!directory) return lastSystemError();
  if (::rename(temporary.path().c_str(), path.c_str()) != 0) return lastSystemError();
  temporary.giveUp();
  const std::error_code error = synchronizeDirectory(directory);
  return error ? std::error_code(error.value(), notDurableCategory()) : error;
}

class NotDurableCategory : public std::error_category {
 public:
  const char* name() const noexcept override { return "not durable"; }
  std::string message(int number) const override {
    return "it is written, but may not survive a loss of power: " + std::system_category().message(number);
  }
  std::error_condition default_error_condition(int number) const noexcept override {
    return std::system_category().default_error_condition(number);
  }
};

}  // namespace

const std::error_category& notDurableCategory() {
  static const NotDurableCategory category;
  return category;
}

std::error_code LinuxFileSystem::writeAtomically(const std::string& path, std::string_view contents) {
  const Place place(path);
  struct stat old {};
  bool hasOld = false;
  if (const std::error_code error = examineOld(path, old, hasOld)) return error;

  FileDescriptor file;
  TemporaryName temporary;
  // Where an old file has its mode to pass on, nobody else may look in before the new one has it.
  if (const std::error_code error = createTemporary(place, hasOld ? 0600 : 0666, file, temporary))
    return error;
  if (const std::error_code error = writeAll(file, contents)) return error;
  if (hasOld) {
    if (const std::error_code error = takeOver(file, old)) return error;
  }
  if (const std::error_code error = synchronize(file)) return error;
  if (const std::error_code error = file.close()) return error;
  if (const std::error_code error = putInPlace(path, place, temporary)) return error;
  removeLeftovers(place);
  return {};
}

}  // namespace corvane
