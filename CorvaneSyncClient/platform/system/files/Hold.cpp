#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <ctime>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"

// A hold is flock(2) on the file itself. The system gives it up when the process ends, so that a killed one
// leaves nothing behind that others would have to judge.

namespace corvane {

namespace {

constexpr long kNanosecondsBetweenTries = 5'000'000;
constexpr int kTries = 400;

class FlockHold : public FileSystem::Hold {
 public:
  explicit FlockHold(FileDescriptor file) : _file(std::move(file)) {}

 private:
  FileDescriptor _file;
};

/// Whether the open file is what stands at `path`, and not what stood there before.
bool standsAt(const FileDescriptor& file, const std::string& path) {
  struct stat own {};
  struct stat there {};
  return ::fstat(file.number(), &own) == 0 && ::lstat(path.c_str(), &there) == 0 &&
         own.st_dev == there.st_dev && own.st_ino == there.st_ino;
}

}  // namespace

std::unique_ptr<FileSystem::Hold> LinuxFileSystem::hold(const std::string& path, std::error_code& error) {
  error.clear();
  for (int i = 0; i < kTries; ++i) {
    FileDescriptor file(retryingInterrupted(
        [&] { return ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC); }));
    const bool isHeld = file && ::flock(file.number(), LOCK_EX | LOCK_NB) == 0;
    if (isHeld && standsAt(file, path)) return std::make_unique<FlockHold>(std::move(file));
    if (isHeld) continue;
    if (!file || errno != EWOULDBLOCK) {
      error = lastSystemError();
      return nullptr;
    }
    const timespec pause{0, kNanosecondsBetweenTries};
    ::nanosleep(&pause, nullptr);  // a signal makes it shorter, which does no harm
  }
  error = {EBUSY, std::system_category()};
  return nullptr;
}

}  // namespace corvane
