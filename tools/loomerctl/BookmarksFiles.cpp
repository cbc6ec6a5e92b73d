#include "tools/loomerctl/BookmarksFiles.h"

#include <filesystem>
#include <memory>
#include <system_error>

#include "CorvaneSyncClient/platform/system/LogListener.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/session/ClientIdentity.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"

namespace corvane::loomerctl {

namespace {

bool isUnchanged(const FileAttributes& before, const FileAttributes& now) {
  return before.kind == now.kind && before.modificationDate == now.modificationDate &&
         before.identity == now.identity;
}

// As the next session will find it.
void readAsASession(const String& client, BookmarksFile& file) {
  const LogListener log(LogListener::Passing::off);
  try {
    const auto manager = CorvaneSyncManager::initWithClientId(client);
    if (manager && manager->readBookmarks()) {
      file.isOfOldVersion = manager->isOfOldVersion();
      return;
    }
    file.problem = tr(log.lastMessage());
  } catch (const PlatformException& exception) {
    file.problem = tr(exception.message());
  }
}

}  // namespace

const BookmarksFile* BookmarksFiles::fileOf(const String& client) {
  const auto name = fileNameForClientId(client);
  if (!name || name->empty()) return nullptr;
  Seen now;
  now.file.path = joinedPath(bookmarksDirectory(), *name);
  std::error_code error;
  const auto attributes = Platform::current().files.attributes(now.file.path, error);
  Seen& seen = _seen[client.toString()];
  if (!attributes) {
    // The next session makes the main client's.
    now.file.isMissing = client != kMainClientId && error == std::errc::no_such_file_or_directory;
    if (error != std::errc::no_such_file_or_directory) now.file.problem = error.message();
    seen = std::move(now);
    return &seen.file;
  }
  if (seen.file.modified && isUnchanged(seen.attributes, *attributes)) return &seen.file;
  now.attributes = *attributes;
  now.file.modified = attributes->modificationDate;
  std::error_code unknown;
  const std::uintmax_t bytes = std::filesystem::file_size(now.file.path, unknown);
  if (!unknown) now.file.bytes = bytes;
  readAsASession(client, now.file);
  seen = std::move(now);
  return &seen.file;
}

}  // namespace corvane::loomerctl
