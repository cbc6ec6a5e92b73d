#pragma once

#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tools/corvane-hub/ObjectNames.h"

namespace corvane::hubserver {

// The objects of one account, as files. An object never changes while it exists. All raise HubFailure where
// the system fails.

/// An object opened for reading; what it holds stays readable when it is removed meanwhile.
struct OpenObject {
  FileDescriptor file;
  std::uint64_t bytes = 0;
  /// Differs from that of any other object that ever has the name: from inode, size and date, whose
  /// nanoseconds are random.
  std::string tag;
};
/// Absent when there is no such object.
std::optional<OpenObject> openObject(const std::string& account, const ObjectPath& path);

/// The bytes of an object that is still to be made: a file without a name, of which nothing stays when the
/// server is killed.
class Upload {
 public:
  explicit Upload(const std::string& account);

  void write(std::string_view bytes);
  std::uint64_t bytes() const { return _bytes; }
  const FileDescriptor& file() const { return _file; }

 private:
  FileDescriptor _file;
  std::uint64_t _bytes = 0;
};

/// What became of an upload.
enum class Stored {
  made,
  same,       ///< an object with these bytes was there
  different,  ///< one with other bytes was there
  full,       ///< the account's quota or the disk has no room
  forbidden,  ///< `isAllowed` said no
};
/// Gives the upload its name unless it is taken; of any number of callers in any number of processes one
/// alone hears `made`. What `made`, `same` and `different` tell of is on the disk. `isAllowed` is asked under
/// the account's lock.
Stored store(const std::string& account, const ObjectPath& path, Upload& upload, std::uint64_t quota,
             const std::function<bool()>& isAllowed);

/// Removes an object; no failure when there is none. It may be back after a power cut.
enum class Removed { removed, forbidden };
Removed removeObject(const std::string& account, const ObjectPath& path,
                     const std::function<bool()>& isAllowed);

/// Whether an upload of `bytes` could fit, as far as one can tell without waiting.
bool hasRoom(const std::string& account, std::uint64_t bytes, std::uint64_t quota);

/// The objects of a folder, one after another, in no order.
class FolderListing {
 public:
  /// `directory` as `folderDirectoryOf` answers it. One that is missing holds nothing.
  FolderListing(const std::string& account, const std::string& directory);

  /// Lines "BYTES SECONDS NAME\n" of the next objects, some KiB; empty at the end.
  std::string next();

 private:
  std::string _path;
  std::string _folder;
  std::unique_ptr<DIR, int (*)(DIR*)> _stream;
};

}  // namespace corvane::hubserver
