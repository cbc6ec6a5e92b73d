#include "CorvaneSyncClient/platform/pelto/Account.h"

#include <sys/stat.h>

#include "CorvaneSyncClient/platform/foundation/PropertyList.h"
#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "CorvaneSyncClient/platform/system/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/PrivateFiles.h"

namespace corvane::pelto {

namespace {

constexpr const char* kUrlKey = "URL";
constexpr const char* kComputerKey = "Computer";
constexpr const char* kReachedKey = "Reached";

constexpr const char* kPermissionRemedy = "Give yourself permission to read and write there.";
constexpr const char* kSetAgainRemedy = "Set the account again with `loomerctl account set`.";

[[noreturn]] void fail(const std::string& path, const std::string& what, const std::string& remedy) {
  throw PlatformException(DotPeltoException,
                          "The online service's account in " + path + ": " + what + ". " + remedy);
}

/// Whoever may read the file may read every bookmark and change it.
void refuseOpenFile(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0)
    fail(path, "can't look at it: " + lastSystemError().message(), kPermissionRemedy);
  if (!S_ISREG(status.st_mode)) fail(path, "it is not a file", "Move it away and set the account again.");
  if ((status.st_mode & 077) != 0) {
    fail(path, "other users may read or write it",
         "Have the account's password changed if somebody may have seen it, and set the account again with "
         "`loomerctl account set`.");
  }
}

Account accountIn(const std::string& path, const std::string& contents) {
  Value value;
  try {
    value = readPropertyList(contents);
  } catch (const PropertyListException& exception) {
    fail(path, exception.reason(), kSetAgainRemedy);
  }
  const Dictionary* entries = value.as<Dictionary>();
  const String url = entries ? entries->string(kUrlKey) : String();
  const String computer = entries ? entries->string(kComputerKey) : String();
  if (!url || !uuidBytes(computer.view())) fail(path, "it is no account", kSetAgainRemedy);
  return {url.toString(), computer, entries->date(kReachedKey)};
}

}  // namespace

std::string accountPathForHome(const std::string& homeDirectory) {
  return joinedPath(homeDirectory, "Library/Application Support/Loomer/Account.plist");
}

std::optional<Account> readAccount(const std::string& path) {
  std::string contents;
  const std::error_code error = Platform::current().files.read(path, contents);
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
    return std::nullopt;
  if (error) fail(path, "can't read it: " + error.message(), kPermissionRemedy);
  refuseOpenFile(path);
  return accountIn(path, contents);
}

void writeAccount(const std::string& path, const Account& account) {
  Dictionary entries{{kUrlKey, account.url}, {kComputerKey, account.computer}};
  if (account.reached) entries.set(kReachedKey, *account.reached);

  if (const auto problem = makePrivateDirectory(path.substr(0, path.rfind('/'))))
    fail(path, "can't make " + problem.path + ": " + problem.error.message(), kPermissionRemedy);
  // An old file passes its mode on to the new one.
  const auto problem = setMode(path, kPrivateFileMode);
  if (problem && problem.error != std::errc::no_such_file_or_directory)
    fail(path, "can't close it to other users: " + problem.error.message(), kPermissionRemedy);
  const PrivateUmask umask;
  if (const auto error = Platform::current().files.writeAtomically(path, writeBinaryPropertyList(entries)))
    fail(path, "can't write it: " + error.message(), kPermissionRemedy);
}

bool removeAccount(const std::string& path) {
  const std::error_code error = Platform::current().files.remove(path);
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) return false;
  if (error) fail(path, "can't remove it: " + error.message(), kPermissionRemedy);
  return true;
}

}  // namespace corvane::pelto
