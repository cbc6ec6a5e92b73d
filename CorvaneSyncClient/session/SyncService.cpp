#include "CorvaneSyncClient/session/SyncService.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <system_error>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane {

std::vector<std::string> unitDirectories() {
  return {joinedPath(Platform::current().process.configurationDirectory(), "systemd/user"),
          "/etc/systemd/user"};
}

bool isSyncTimerOn() {
  const std::vector<std::string> directories = unitDirectories();
  return std::any_of(directories.begin(), directories.end(), [](const std::string& directory) {
    // The link is looked at and not followed: what it leads to may be gone.
    std::error_code error;
    return std::filesystem::exists(
        std::filesystem::symlink_status(directory + "/timers.target.wants/" + kSyncTimer, error));
  });
}

void syncFilesSoon() {
  if (!isSyncTimerOn()) return;
  const std::array<const char*, 7> words{"systemctl",  "--user",     "--quiet", "start",
                                         "--no-block", kSyncService, nullptr};
  // These fail for want of memory alone, and glibc's then do not. Standard output may be somebody's channel.
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int each : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    posix_spawn_file_actions_addopen(&actions, each, "/dev/null", O_RDWR, 0);
  pid_t child = 0;
  const int error =
      posix_spawnp(&child, words[0], &actions, nullptr, const_cast<char* const*>(words.data()), environ);
  posix_spawn_file_actions_destroy(&actions);
  // The child is this process's own, so that nothing but a signal comes between.
  if (error == 0) retryingInterrupted([&] { return ::waitpid(child, nullptr, 0); });
}

}  // namespace corvane
