#include "tools/corvane-hub/ObjectFiles.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>

#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"
#include "tools/corvane-hub/HubFailure.h"
#include "tools/corvane-hub/UsageLedger.h"

namespace corvane::hubserver {

namespace {

constexpr std::size_t kListingChunk = 16 * 1024;
constexpr std::size_t kCompareChunk = 64 * 1024;

std::string objectsOf(const std::string& account) { return account + "/objects"; }

FileDescriptor openedDirectory(const std::string& path) {
  FileDescriptor directory(retryingInterrupted(
      [&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW); }));
  if (!directory) throw HubFailure(path + " cannot be opened", lastSystemError());
  return directory;
}

void synchronize(const FileDescriptor& file, const std::string& path) {
  if (retryingInterrupted([&] { return ::fsync(file.number()); }) != 0) {
    throw HubFailure(path + " did not reach the disk", lastSystemError());
  }
}

void synchronizeDirectory(const std::string& path) { synchronize(openedDirectory(path), path); }

/// The time of now, with nanoseconds that nobody can foresee or repeat (`OpenObject::tag`).
timespec unrepeatableNow() {
  timespec now{};
  std::uint64_t random = 0;
  if (::clock_gettime(CLOCK_REALTIME, &now) != 0 || ::getrandom(&random, sizeof random, 0) != sizeof random) {
    throw HubFailure("no time or no random bytes", lastSystemError());
  }
  now.tv_nsec = static_cast<long>(random % 1'000'000'000);
  return now;
}

bool exists(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) == 0) return true;
  if (errno == ENOENT) return false;
  throw HubFailure(path + " cannot be looked at", lastSystemError());
}

std::size_t readAt(const FileDescriptor& file, std::uint64_t offset, std::array<char, kCompareChunk>& chunk) {
  const ssize_t count = retryingInterrupted(
      [&] { return ::pread(file.number(), chunk.data(), chunk.size(), static_cast<off_t>(offset)); });
  if (count < 0) throw HubFailure("an object cannot be read", lastSystemError());
  return static_cast<std::size_t>(count);
}

bool holdsSame(const Upload& upload, const OpenObject& object) {
  if (upload.bytes() != object.bytes) return false;
  std::array<char, kCompareChunk> mine;
  std::array<char, kCompareChunk> theirs;
  for (std::uint64_t offset = 0; offset < object.bytes;) {
    const std::size_t size = readAt(upload.file(), offset, mine);
    if (size == 0 || readAt(object.file, offset, theirs) != size) return false;
    if (std::string_view(mine.data(), size) != std::string_view(theirs.data(), size)) return false;
    offset += size;
  }
  return true;
}

/// Makes a folder that is missing; answers whether it did.
bool makeFolder(UsageLedger& ledger, const std::string& account, const ObjectPath& path) {
  const std::string folder = objectsOf(account) + '/' + path.directory;
  if (exists(folder)) return false;
  ledger.announce({LedgerChange::Kind::addition, kFolderCharge, path.directory});
  const bool made = ::mkdir(folder.c_str(), kPrivateDirectoryMode) == 0;
  const std::error_code error = lastSystemError();
  ledger.settle(made);
  if (!made) throw HubFailure(folder + " cannot be made", error);
  return true;
}

/// Gives the upload its name, of which the ledger's lock says that nobody has it.
void linkUpload(UsageLedger& ledger, const std::string& account, const ObjectPath& path,
                const Upload& upload) {
  const std::string target = objectsOf(account) + '/' + path.relative();
  const std::string source = "/proc/self/fd/" + std::to_string(upload.file().number());
  ledger.announce({LedgerChange::Kind::addition, chargeOf(upload.bytes()), path.relative()});
  const bool made = ::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) == 0;
  const std::error_code error = lastSystemError();
  ledger.settle(made);
  if (!made) throw HubFailure(target + " cannot be made", error);
}

/// `made`, `full`, `forbidden`, or `same` where something has the name already, whatever it holds.
Stored storeLocked(const std::string& account, const ObjectPath& path, const Upload& upload,
                   std::uint64_t quota, const std::function<bool()>& isAllowed) {
  UsageLedger ledger(account);
  if (!isAllowed()) return Stored::forbidden;
  if (exists(objectsOf(account) + '/' + path.relative())) return Stored::same;
  const std::uint64_t charge = chargeOf(upload.bytes());
  if (ledger.bytes() + charge + kFolderCharge > quota) return Stored::full;
  makeFolder(ledger, account, path);
  linkUpload(ledger, account, path, upload);
  return Stored::made;
}

}  // namespace

std::optional<OpenObject> openObject(const std::string& account, const ObjectPath& path) {
  const std::string name = objectsOf(account) + '/' + path.relative();
  OpenObject object;
  object.file = FileDescriptor(
      retryingInterrupted([&] { return ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW); }));
  if (!object.file && errno == ENOENT) return {};
  struct stat status {};
  if (!object.file || ::fstat(object.file.number(), &status) != 0) {
    throw HubFailure(name + " cannot be opened", lastSystemError());
  }
  object.bytes = static_cast<std::uint64_t>(status.st_size);
  char tag[64];
  std::snprintf(tag, sizeof tag, "\"%llx-%llx-%llx-%lx\"", static_cast<unsigned long long>(status.st_ino),
                static_cast<unsigned long long>(status.st_size),
                static_cast<unsigned long long>(status.st_mtim.tv_sec),
                static_cast<unsigned long>(status.st_mtim.tv_nsec));
  object.tag = tag;
  return object;
}

Upload::Upload(const std::string& account)
    : _file(retryingInterrupted([&] {
        return ::open(objectsOf(account).c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, kPrivateFileMode);
      })) {
  if (!_file)
    throw HubFailure("no file without a name can be made in " + objectsOf(account), lastSystemError());
}

void Upload::write(std::string_view bytes) {
  if (const std::error_code error = writeAll(_file, bytes))
    throw HubFailure("an upload cannot be written", error);
  _bytes += bytes.size();
}

Stored store(const std::string& account, const ObjectPath& path, Upload& upload, std::uint64_t quota,
             const std::function<bool()>& isAllowed) {
  try {
    const timespec times[2] = {{0, UTIME_OMIT}, unrepeatableNow()};
    if (::futimens(upload.file().number(), times) != 0)
      throw HubFailure("an upload gets no date", lastSystemError());
    synchronize(upload.file(), "an upload");
    const Stored stored = storeLocked(account, path, upload, quota, isAllowed);
    if (stored == Stored::full || stored == Stored::forbidden) return stored;
    // Also what another one made: it may be on its way to the disk, or its maker was killed before it was.
    synchronizeDirectory(objectsOf(account) + '/' + path.directory);
    synchronizeDirectory(objectsOf(account));
    if (stored == Stored::made) return stored;
    const std::optional<OpenObject> there = openObject(account, path);
    return there && holdsSame(upload, *there) ? Stored::same : Stored::different;
  } catch (const HubFailure& failure) {
    if (!failure.isFull()) throw;
    return Stored::full;
  }
}

Removed removeObject(const std::string& account, const ObjectPath& path,
                     const std::function<bool()>& isAllowed) {
  UsageLedger ledger(account);
  if (!isAllowed()) return Removed::forbidden;
  const std::string name = objectsOf(account) + '/' + path.relative();
  struct stat status {};
  if (::lstat(name.c_str(), &status) != 0) {
    if (errno == ENOENT) return Removed::removed;
    throw HubFailure(name + " cannot be looked at", lastSystemError());
  }
  const std::uint64_t bytes = static_cast<std::uint64_t>(status.st_size);
  ledger.announce({LedgerChange::Kind::removal, chargeOf(bytes), path.relative()});
  const bool removed = ::unlink(name.c_str()) == 0;
  const std::error_code error = lastSystemError();
  ledger.settle(removed);
  if (!removed) throw HubFailure(name + " cannot be removed", error);
  return Removed::removed;
}

bool hasRoom(const std::string& account, std::uint64_t bytes, std::uint64_t quota) {
  return UsageLedger::bytesAtOnce(account).value_or(0) + chargeOf(bytes) + kFolderCharge <= quota;
}

FolderListing::FolderListing(const std::string& account, const std::string& directory)
    : _path(objectsOf(account) + '/' + directory),
      _folder(folderOf(directory)),
      _stream(::opendir(_path.c_str()), &::closedir) {
  if (!_stream && errno != ENOENT) throw HubFailure(_path + " cannot be read", lastSystemError());
}

std::string FolderListing::next() {
  std::string lines;
  while (_stream && lines.size() < kListingChunk) {
    errno = 0;
    const dirent* entry = ::readdir(_stream.get());
    if (!entry) {
      if (errno != 0) throw HubFailure(_path + " cannot be read", lastSystemError());
      _stream.reset();
      break;
    }
    struct stat status {};
    if (::fstatat(::dirfd(_stream.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno == ENOENT) continue;  // removed since
      throw HubFailure(_path + " cannot be read", lastSystemError());
    }
    if (!S_ISREG(status.st_mode)) continue;
    lines += std::to_string(status.st_size) + ' ' + std::to_string(status.st_mtim.tv_sec) + ' ' + _folder +
             '/' + entry->d_name + '\n';
  }
  return lines;
}

}  // namespace corvane::hubserver
