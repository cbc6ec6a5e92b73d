#include "CorvaneSyncClient/platform/system/linux/LinuxProcessInfo.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <system_error>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/FileSystem.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane {

namespace {

struct Account {
  std::string login;
  std::string comment;
  std::string home;
};

std::string textOrEmpty(const char* text) { return text ? text : ""; }

// The user's entry in the password database; nothing when there is none or the database cannot be asked.
std::optional<Account> ownAccount() {
  std::vector<char> buffer(1024);
  passwd entry{};
  passwd* found = nullptr;
  while (true) {
    const int error = getpwuid_r(geteuid(), &entry, buffer.data(), buffer.size(), &found);
    if (error == ERANGE) {
      buffer.resize(buffer.size() * 2);
    } else if (error != EINTR) {
      break;
    }
  }
  if (!found) return std::nullopt;
  return Account{textOrEmpty(entry.pw_name), textOrEmpty(entry.pw_gecos), textOrEmpty(entry.pw_dir)};
}

// The directory that an environment variable names; nothing when it names none.
std::optional<std::string> directoryInEnvironment(const char* variable) {
  const std::string path = textOrEmpty(std::getenv(variable));
  struct stat status {};
  if (!path.starts_with('/') || ::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
    return std::nullopt;
  return withoutTrailingSlashes(path);
}

[[noreturn]] void refuse(const std::string& path, const std::string& cause) {
  throw PlatformException(NSObjectNotAvailableException,
                          Message("Can't use temporary directory %1: %2", path, cause));
}

}  // namespace

std::string fullNameFromComment(std::string_view comment, std::string_view loginName) {
  std::string name;
  for (const char c : comment.substr(0, comment.find(','))) {
    if (c != '&') {
      name += c;
    } else if (!loginName.empty()) {
      name += static_cast<char>(std::toupper(static_cast<unsigned char>(loginName.front())));
      name += loginName.substr(1);
    }
  }
  return name.empty() ? std::string(loginName) : name;
}

int LinuxProcessInfo::processId() { return getpid(); }

std::string LinuxProcessInfo::processName() { return program_invocation_short_name; }

std::string LinuxProcessInfo::hostName() {
  char name[HOST_NAME_MAX + 1] = {};
  return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

std::string LinuxProcessInfo::userName() {
  const std::optional<Account> account = ownAccount();
  return account ? account->login : std::to_string(geteuid());
}

std::string LinuxProcessInfo::fullUserName() {
  const std::optional<Account> account = ownAccount();
  return account ? fullNameFromComment(account->comment, account->login) : userName();
}

std::string LinuxProcessInfo::homeDirectory() {
  const std::string home = textOrEmpty(std::getenv("HOME"));
  if (home.starts_with('/')) return withoutTrailingSlashes(home);
  const std::optional<Account> account = ownAccount();
  if (account && !account->home.empty()) return withoutTrailingSlashes(account->home);
  throw PlatformException(
      NSObjectNotAvailableException,
      Message("Can't find the home directory: HOME names none and user %1 has none", userName()));
}

std::string LinuxProcessInfo::configurationDirectory() {
  const std::string path = textOrEmpty(std::getenv("XDG_CONFIG_HOME"));
  return path.starts_with('/') ? withoutTrailingSlashes(path) : joinedPath(homeDirectory(), ".config");
}

std::string LinuxProcessInfo::temporaryDirectory() {
  for (const char* variable : {"TMPDIR", "XDG_RUNTIME_DIR"}) {
    if (std::optional<std::string> path = directoryInEnvironment(variable)) return *path;
  }
  const std::string path = joinedPath(_sharedTemporaryDirectory, "corvane-" + std::to_string(geteuid()));
  if (::mkdir(path.c_str(), kPrivateDirectoryMode) != 0 && errno != EEXIST)
    refuse(path, std::system_category().message(errno));
  // Anybody may have made it beforehand: it must be a directory itself, the user's, and closed to others.
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) refuse(path, std::system_category().message(errno));
  if (!S_ISDIR(status.st_mode)) refuse(path, tr("it is not a directory"));
  if (status.st_uid != geteuid()) refuse(path, tr("it belongs to another user"));
  if ((status.st_mode & 07777) != kPrivateDirectoryMode &&
      ::chmod(path.c_str(), kPrivateDirectoryMode) != 0) {
    refuse(path, std::system_category().message(errno));
  }
  return path;
}

ProcessInfo::Liveness LinuxProcessInfo::liveness(int processId) {
  if (::kill(processId, 0) == 0) return Liveness::alive;
  return errno == ESRCH ? Liveness::gone : Liveness::undetermined;
}

}  // namespace corvane
