#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/system/Paths.h"

namespace corvane {

enum class FileKind { regular, directory, other };

/// Tells a file or directory from all others, also from those that are made in its place once it is gone:
/// inode numbers are used again at once, but not with the same time of birth. Unchanged by whatever is done
/// to the file.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::int64_t birth = 0;  ///< nanoseconds since 1970; 0 where the file system does not keep it
  friend bool operator==(const FileIdentity&, const FileIdentity&) = default;
};

struct FileAttributes {
  FileKind kind = FileKind::regular;
  Date modificationDate;  ///< sub-second, as stat answers it
  FileIdentity identity;
};

/// The modes of new files and directories, from which the process's umask takes.
inline constexpr unsigned kDefaultFileMode = 0666;
inline constexpr unsigned kDefaultDirectoryMode = 0777;

/// Errors, by errno, of files that were written and could not be made durable.
const std::error_category& notDurableCategory();

/// Everything that the tool does to files. Operations answer an error code of the system category
/// (`message()` is the system's text; false when all went well) and leave no half-done work of their own
/// behind on failure.
class FileSystem {
 public:
  virtual ~FileSystem() = default;

  /// What stands at `path`, symbolic links followed; nothing, with `error` set, when it is not known.
  virtual std::optional<FileAttributes> attributes(const std::string& path, std::error_code& error) = 0;
  /// As `attributes`, for those who do not care for the cause.
  std::optional<FileAttributes> attributesIfKnown(const std::string& path) {
    std::error_code error;
    return attributes(path, error);
  }
  /// As `attributes`, of a symbolic link itself where it is one.
  virtual std::optional<FileAttributes> ownAttributes(const std::string& path, std::error_code& error) = 0;
  /// One level of a symbolic link as it is stored; nothing when `path` is no link.
  virtual std::optional<std::string> symbolicLinkDestination(const std::string& path) = 0;

  /// Makes one directory (intermediate ones are not made); the process's umask applies.
  /// `std::errc::file_exists` when something stands there already. Atomic, also on network file systems.
  virtual std::error_code makeDirectory(const std::string& path, unsigned mode) = 0;
  /// Removes a file, or a directory with its contents; symbolic links are removed and not followed.
  virtual std::error_code remove(const std::string& path) = 0;
  /// rename(2): replaces an existing target.
  virtual std::error_code rename(const std::string& from, const std::string& to) = 0;
  /// As `rename`, but `std::errc::file_exists` when anything stands at `to`. Atomic where the file system
  /// knows such a rename or, for files, links; elsewhere what comes to stand there in the same instant may be
  /// replaced.
  virtual std::error_code renameWithoutReplacing(const std::string& from, const std::string& to) = 0;
  /// Renames what stands at `path` to a name in the same directory that nothing else has, and answers that
  /// name in `aside`. What a killed process moved aside and left there is removed by the next call for the
  /// same path on the same machine.
  virtual std::error_code moveAside(const std::string& path, std::string& aside) = 0;

  /// See `hold`.
  class Hold {
   public:
    virtual ~Hold() = default;
  };
  /// Keeps all others who ask for it from getting a hold on the file or directory that stands at `path`,
  /// whatever its name becomes, until the answer is dropped or the process ends. Empty, with `error` set,
  /// when nothing stands there (`std::errc::no_such_file_or_directory`), when others' holds last longer than
  /// two seconds
  /// (`device_or_resource_busy`), and, with whatever else the system says, where it may not be opened for
  /// reading or the file system cannot do it (NFS cannot, for directories).
  virtual std::unique_ptr<Hold> hold(const std::string& path, std::error_code& error) = 0;

  /// Copies a regular file's contents and mode; the target must not exist.
  virtual std::error_code copy(const std::string& from, const std::string& to) = 0;

  /// Reads all of a regular file. `std::errc::file_too_large` beyond 2 GiB, `std::errc::not_enough_memory`
  /// where memory does not suffice. `contents` stays as it was on failure.
  virtual std::error_code read(const std::string& path, std::string& contents) = 0;
  /// Writes a new file in place (an old one is truncated), without the guarantees of `writeAtomically`.
  virtual std::error_code write(const std::string& path, std::string_view contents) = 0;
  /// Replaces the file at `path` (a symbolic link itself, not its target) by one with these contents:
  /// temporary file in the same directory, fsync, the old file's mode and where permitted its owner, rename,
  /// fsync of the directory. Readers see the old file or the new one; once this answers without an error, the
  /// new one is durable. A new file gets 0666 less the umask.
  ///
  /// On failure the old file stands and the temporary file is gone, but for one case: when the directory's
  /// fsync fails, the new file stands already and may not survive a loss of power; the error then is one of
  /// `notDurableCategory`. A process that is killed leaves its temporary file, which the next write of the
  /// same file on the same machine removes.
  ///
  /// `contents` gives them, in pieces, to the function that it is called with; what it raises passes through,
  /// with nothing changed. Once a write has failed, further pieces are left aside.
  using Contents = std::function<void(const std::function<void(std::string_view)>& take)>;
  virtual std::error_code writeAtomically(const std::string& path, const Contents& contents) = 0;
  std::error_code writeAtomically(const std::string& path, std::string_view contents) {
    return writeAtomically(path, [contents](const auto& take) { take(contents); });
  }
  /// As `writeAtomically`, but replaces nothing: `std::errc::file_exists`, or `is_a_directory`, when
  /// something stands at `path`, and by `renameWithoutReplacing` also if it came only while the contents were
  /// written. A symbolic link that leads nowhere counts as nothing, and is replaced.
  virtual std::error_code writeNewAtomically(const std::string& path, std::string_view contents) = 0;

  /// The mount point of the file system that holds `path`, and whether that file system is local.
  struct Volume {
    std::string mountPoint;  ///< empty when it lies outside of this process's root (chroot)
    bool isLocal = false;
  };
  /// Nothing when the system does not know.
  virtual std::optional<Volume> volume(const std::string& path) = 0;
};

}  // namespace corvane
