#include "CorvaneSyncClient/platform/system/locks/LockDirectory.h"

#include <utility>

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

namespace {

std::error_code unlessGone(const std::error_code& error) {
  return error == std::errc::no_such_file_or_directory ? std::error_code() : error;
}

bool isAnother(const std::string& path, const std::optional<FileIdentity>& judged) {
  std::error_code error;  // what was there a moment ago and cannot be looked at is no other
  const std::optional<FileAttributes> standing = Platform::current().files.ownAttributes(path, error);
  return judged && standing && standing->identity != *judged;
}

// Where a third one has made a lock meanwhile, or nothing can be put there, the one that was moved is lost to
// its holder, who finds that out when it looks.
void putBack(const std::string& aside, const std::string& path) {
  FileSystem& files = Platform::current().files;
  if (files.renameWithoutReplacing(aside, path)) files.remove(aside);
}

}  // namespace

std::error_code takeLockDirectory(const std::string& path, const std::optional<FileIdentity>& judged,
                                  std::string& aside) {
  aside.clear();
  if (isAnother(path, judged)) return {};
  std::string moved;
  if (const std::error_code error = Platform::current().files.moveAside(path, moved))
    return unlessGone(error);
  if (isAnother(moved, judged)) {
    putBack(moved, path);
  } else {
    aside = std::move(moved);
  }
  return {};
}

}  // namespace corvane
