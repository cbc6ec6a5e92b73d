#include "CorvaneSyncClient/platform/pelto/place/DirectoryPlace.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <set>

#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceLeftovers.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceNames.h"
#include "CorvaneSyncClient/platform/system/FileSystem.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/Paths.h"
#include "CorvaneSyncClient/platform/system/files/Timespec.h"
#include "CorvaneSyncClient/platform/system/files/Volume.h"

namespace corvane::pelto {

namespace {

constexpr std::size_t kMostListed = 1'000'000;

using Directory = std::unique_ptr<DIR, int (*)(DIR*)>;

std::string_view lastPartOf(std::string_view name) { return name.substr(name.rfind('/') + 1); }

FileDescriptor openDirectory(const std::string& path) {
  return FileDescriptor(
      retryingInterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

/// Some file systems have no fsync for directories and say so: there is nothing to wait for then.
std::error_code synchronizeDirectory(const FileDescriptor& directory) {
  if (retryingInterrupted([&] { return ::fsync(directory.number()); }) == 0) return {};
  return errno == EINVAL || errno == ENOTSUP ? std::error_code() : lastSystemError();
}

/// A file that nobody else knows of, in a folder, gone again with this object.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(const FileDescriptor& folder) : _folder(folder), _name(newTemporaryName()) {}
  ~UnfinishedFile() {
    if (_isThere) ::unlinkat(_folder.number(), _name.c_str(), 0);  // what stays is a leftover for `list`
  }
  UnfinishedFile(const UnfinishedFile&) = delete;
  UnfinishedFile& operator=(const UnfinishedFile&) = delete;

  /// Has the bytes reach the disk.
  std::error_code write(std::string_view bytes) {
    FileDescriptor file(retryingInterrupted([&] {
      return ::openat(_folder.number(), _name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                      kDefaultFileMode);
    }));
    if (!file) return lastSystemError();
    _isThere = true;
    if (const std::error_code error = writeAll(file, bytes)) return error;
    if (retryingInterrupted([&] { return ::fsync(file.number()); }) != 0) return lastSystemError();
    struct stat status {};
    if (::fstat(file.number(), &status) != 0) return lastSystemError();
    _written = status.st_mtim;
    return file.close();
  }
  /// When it was written, by the file system's clock.
  timespec written() const { return _written; }

  /// Gives the file a further name. A server's answer may get lost and the request be repeated, which then
  /// fails with EEXIST on its own work; the file's count of names tells.
  std::error_code link(const std::string& name) {
    if (::linkat(_folder.number(), _name.c_str(), _folder.number(), name.c_str(), 0) == 0) return {};
    const std::error_code error = lastSystemError();
    struct stat status {};
    const bool isLinked = error == std::errc::file_exists &&
                          ::fstatat(_folder.number(), _name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                          status.st_nlink == 2;
    return isLinked ? std::error_code() : error;
  }
  std::error_code renameWithoutReplacing(const std::string& name) { return renamed(name, RENAME_NOREPLACE); }
  std::error_code rename(const std::string& name) { return renamed(name, 0); }

 private:
  std::error_code renamed(const std::string& name, unsigned flags) {
    if (::renameat2(_folder.number(), _name.c_str(), _folder.number(), name.c_str(), flags) != 0)
      return lastSystemError();
    _isThere = false;
    return {};
  }

  const FileDescriptor& _folder;
  std::string _name;
  bool _isThere = false;
  timespec _written{};
};

bool isUnknownOperation(std::error_code error) {
  return error.value() == EPERM || error.value() == EOPNOTSUPP || error.value() == ENOSYS ||
         error.value() == EINVAL || error.value() == EMLINK;
}

// One that leaves it open whether the server at the other end of a share has done it.
bool isUncertain(std::error_code error) {
  return error.value() == EIO || error.value() == ETIMEDOUT || error.value() == ESTALE ||
         error.value() == EINTR || error.value() == ECONNRESET || error.value() == ECONNABORTED ||
         error.value() == ENOTCONN || error.value() == EHOSTDOWN || error.value() == EREMOTEIO;
}

std::string tagOf(const struct stat& status) {
  return std::to_string(status.st_mtim.tv_sec) + '.' + std::to_string(status.st_mtim.tv_nsec) + '-' +
         std::to_string(status.st_size) + '-' + std::to_string(status.st_ino);
}

/// Absent when the file does not hold exactly that many bytes, or cannot be read, which errno then tells.
std::optional<std::string> contentsOf(const FileDescriptor& file, std::size_t size) {
  std::string bytes(size + 1, '\0');  // one more than is there, to find the end
  std::size_t count = 0;
  errno = 0;
  while (count < bytes.size()) {
    const ssize_t now = retryingInterrupted(
        [&] { return ::read(file.number(), bytes.data() + count, bytes.size() - count); });
    if (now < 0) return std::nullopt;
    if (now == 0) break;
    count += static_cast<std::size_t>(now);
  }
  if (count != size) return std::nullopt;
  bytes.resize(size);
  return bytes;
}

}  // namespace

DirectoryPlace::DirectoryPlace(std::string directory, Deadline deadline)
    : _directory(std::move(directory)), _deadline(deadline) {}

Message DirectoryPlace::description() const { return Message("the directory %1", _directory); }

std::string DirectoryPlace::software() const {
  const std::optional<FileSystem::Volume> volume = volumeOf(_directory);
  return volume && volume->isLocal ? tr("a disk of this computer") : tr("a share");
}

std::vector<std::string> DirectoryPlace::caveats() const {
  return {
      tr("A share or disk that isn't mounted looks like an empty place, if the directory itself is there.")};
}

std::string DirectoryPlace::pathOf(std::string_view name) const {
  return joinedPath(_directory, std::string(name));
}

void DirectoryPlace::fail(const Message& what, const Message& cause, const Message& remedy) const {
  throw PlaceException(sentences(Message("Can't %1 in %2: %3.", what, description(), cause), remedy));
}

void DirectoryPlace::fail(const Message& what, std::error_code error) const {
  const Message text("Can't %1 in %2: %3.", what, description(), error.message());
  switch (error.value()) {
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
      throw PlaceFullException(sentences(text, Message("Make room there.")));
    case EACCES:
    case EPERM:
    case EROFS:
      throw PlaceRefusedException(
          sentences(text, Message("Give yourself permission to read and write there.")));
    default:
      throw PlaceException(sentences(text, Message("See whether the disk or share is there and in order.")));
  }
}

void DirectoryPlace::checkTime(const Message& what) const {
  if (Deadline::clock::now() >= _deadline)
    fail(what, Message("there is no time left for it"),
         Message("See whether the disk or share is slow; it is tried again."));
}

// The folder, made where it is missing with those above it, but not the place's own directory.
FileDescriptor DirectoryPlace::folder(std::string_view name, const Message& what) const {
  const std::string path = pathOf(name);
  FileDescriptor opened = openDirectory(path);
  if (opened) return opened;
  if (errno != ENOENT) fail(what, lastSystemError());
  const std::size_t slash = name.rfind('/');
  const FileDescriptor above =
      slash == std::string_view::npos ? openDirectory(_directory) : folder(name.substr(0, slash), what);
  if (!above && errno == ENOENT)
    fail(what, Message("the directory is not there"),
         Message("Make it, or mount the disk or share that it lies on."));
  if (!above) fail(what, lastSystemError());
  if (::mkdir(path.c_str(), kDefaultDirectoryMode) != 0 && errno != EEXIST) fail(what, lastSystemError());
  if (const std::error_code error = synchronizeDirectory(above)) fail(what, error);
  opened = openDirectory(path);
  if (!opened) fail(what, lastSystemError());
  return opened;
}

Made DirectoryPlace::putNew(const std::string& name, std::string_view bytes) {
  requirePlaceName(name);
  const Message what("make %1", name);
  const std::string last(lastPartOf(name));
  checkTime(what);
  const FileDescriptor directory = folder(folderOf(name), what);
  UnfinishedFile file(directory);
  if (const std::error_code error = file.write(bytes)) fail(what, error);
  std::error_code error = file.link(last);
  if (isUnknownOperation(error)) error = file.renameWithoutReplacing(last);
  if (error == std::errc::file_exists) return Made::present;
  if (isUnknownOperation(error)) {
    fail(what, Message("its file system can neither link files nor rename them without replacing others"),
         Message("Two computers could overwrite each other there: use another place."));
  }
  if (isUncertain(error)) return Made::unknown;
  if (error) fail(what, error);
  // A name that a power cut may take away again is not made for certain.
  return synchronizeDirectory(directory) ? Made::unknown : Made::made;
}

void DirectoryPlace::put(const std::vector<NamedBytes>& objects) {
  std::set<std::string, std::less<>> folders;
  for (const NamedBytes& object : objects) {
    requirePlaceName(object.name);
    const Message what("write %1", object.name);
    checkTime(what);
    const FileDescriptor directory = folder(folderOf(object.name), what);
    UnfinishedFile file(directory);
    if (const std::error_code error = file.write(object.bytes)) fail(what, error);
    if (const std::error_code error = file.rename(std::string(lastPartOf(object.name)))) fail(what, error);
    folders.emplace(folderOf(object.name));
  }
  for (const std::string& name : folders) {
    const Message what("write to %1", name);
    if (const std::error_code error = synchronizeDirectory(folder(name, what))) fail(what, error);
  }
}

GetAnswer DirectoryPlace::getOne(const GetRequest& request) const {
  requirePlaceName(request.name);
  const Message what("read %1", request.name);
  checkTime(what);
  const FileDescriptor file(retryingInterrupted(
      [&] { return ::open(pathOf(request.name).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
  if (!file && errno == ENOENT) {
    if (!openDirectory(_directory)) fail(what, lastSystemError());
    return {};
  }
  struct stat status {};
  if (!file || ::fstat(file.number(), &status) != 0) fail(what, lastSystemError());
  if (!S_ISREG(status.st_mode)) fail(what, Message("it is no file"), Message("Move away what stands there."));
  const std::string tag = tagOf(status);
  if (tag == request.tag) return {GetAnswer::State::unchanged, {}, tag};
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size > request.mostBytes) return {GetAnswer::State::tooLong, {}, {}};
  std::optional<std::string> bytes = contentsOf(file, static_cast<std::size_t>(size));
  if (!bytes && errno != 0) fail(what, lastSystemError());
  if (!bytes) fail(what, Message("it changed while it was read"), Message("It is tried again."));
  return {GetAnswer::State::present, std::move(*bytes), tag};
}

std::vector<GetAnswer> DirectoryPlace::get(const std::vector<GetRequest>& requests) {
  std::vector<GetAnswer> answers;
  for (const GetRequest& request : requests) answers.push_back(getOne(request));
  return answers;
}

std::vector<PlaceObject> DirectoryPlace::list(const std::string& name) {
  requirePlaceFolder(name);
  const Message what("list %1", name);
  FileDescriptor folder = openDirectory(pathOf(name));
  if (!folder && errno == ENOENT) {
    if (!openDirectory(_directory)) fail(what, lastSystemError());
    return {};
  }
  if (!folder) fail(what, lastSystemError());
  FileDescriptor same(::fcntl(folder.number(), F_DUPFD_CLOEXEC, 0));
  const Directory directory(same ? ::fdopendir(same.number()) : nullptr, &::closedir);
  if (!directory) fail(what, lastSystemError());
  same.release();
  std::vector<PlaceObject> objects;
  std::vector<std::string> unfinished;
  while (true) {
    checkTime(what);
    errno = 0;
    const dirent* const entry = ::readdir(directory.get());
    if (!entry) break;
    const std::string last = entry->d_name;
    if (isTemporaryName(last)) unfinished.push_back(last);
    struct stat status {};
    if (!isPlaceNamePart(last) ||
        ::fstatat(folder.number(), last.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(status.st_mode))
      continue;  // one that is gone meanwhile is not there
    if (objects.size() == kMostListed)
      fail(what, Message("there are more than a million files"), Message("Use another directory."));
    objects.push_back(
        {name + '/' + last, static_cast<std::uint64_t>(status.st_size), dateOf(status.st_mtim)});
  }
  if (errno != 0) fail(what, lastSystemError());
  removeLeftovers(folder, unfinished);
  return objects;
}

// How old a file is, only the file system's own clock can tell, which a new file shows. Failures are not
// reported: what stays now goes the next time.
void DirectoryPlace::removeLeftovers(const FileDescriptor& folder,
                                     const std::vector<std::string>& names) const {
  if (names.empty()) return;
  UnfinishedFile clock(folder);
  if (clock.write("")) return;
  const double now = dateOf(clock.written()).seconds;
  for (const std::string& name : names) {
    struct stat status {};
    if (::fstatat(folder.number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        now - dateOf(status.st_mtim).seconds > kLeftoverAge)
      ::unlinkat(folder.number(), name.c_str(), 0);
  }
}

void DirectoryPlace::remove(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    requirePlaceName(name);
    const Message what("remove %1", name);
    checkTime(what);
    if (::unlink(pathOf(name).c_str()) != 0 && errno != ENOENT) fail(what, lastSystemError());
  }
}

}  // namespace corvane::pelto
