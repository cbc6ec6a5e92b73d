#include "CorvaneSyncClient/platform/system/files/TemporaryNames.h"

#include <dirent.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <memory>

#include "CorvaneSyncClient/platform/foundation/SipHash.h"
#include "CorvaneSyncClient/platform/system/Paths.h"
#include "CorvaneSyncClient/platform/system/files/RemoveTree.h"

namespace corvane {

namespace {

// Where process ids mean what they mean here: this machine, and the set of processes that this one sees.
std::string processSpace() {
  char host[HOST_NAME_MAX + 1] = {};
  ::gethostname(host, sizeof host - 1);  // without a name all nameless machines look the same
  struct stat space {};
  ::stat("/proc/self/ns/pid", &space);  // 0 without that file system
  return std::string(host) + '/' + std::to_string(space.st_ino);
}

// How temporary names for one target begin: with a hash of the target's name, which could
// itself be too long, and of where the process id that follows is one. The same in every process.
std::string temporaryPrefix(const std::string& targetName) {
  const std::uint64_t hash = sipHash({}, targetName + '/' + processSpace());
  char digits[17];
  std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(hash));
  return std::string(".corvane-") + digits + '-';
}

// The process that made the temporary name `name`; 0 when it is not one of this target's.
pid_t makerOf(std::string_view name, const std::string& prefix) {
  if (!name.starts_with(prefix) || !name.ends_with(".tmp")) return 0;
  name.remove_prefix(prefix.size());
  pid_t process = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
  return error == std::errc() && process > 0 && *end == '-' ? process : 0;
}

}  // namespace

Place::Place(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  directory = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  name = slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string nextTemporaryPath(const Place& target) {
  static unsigned counter = 0;
  const std::string number = std::to_string(::getpid()) + '-' + std::to_string(++counter);
  return joinedPath(target.directory, temporaryPrefix(target.name) + number + ".tmp");
}

void removeLeftovers(const Place& target) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(target.directory.c_str()), &::closedir);
  if (!directory) return;
  const std::string prefix = temporaryPrefix(target.name);
  while (const dirent* entry = ::readdir(directory.get())) {
    const pid_t maker = makerOf(entry->d_name, prefix);
    if (maker != 0 && ::kill(maker, 0) != 0 && errno == ESRCH) {
      removeTree(joinedPath(target.directory, entry->d_name));
    }
  }
}

}  // namespace corvane
