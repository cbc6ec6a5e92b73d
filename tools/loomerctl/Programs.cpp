#include "tools/loomerctl/Programs.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <system_error>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

namespace {

[[noreturn]] void refuseToRun(const std::string& program, int error) {
  throw Refused{tr("Cannot run %1: %2.", program, std::system_category().message(error))};
}

// What a program gets and this one does not have: `output` as its standard output and error, and SIGPIPE.
class SpawnSettings {
 public:
  explicit SpawnSettings(int output) {
    // These fail for want of memory alone, and glibc's then do not.
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
};

pid_t startProgram(const std::vector<std::string>& words, int output) {
  std::vector<char*> arguments;
  for (const std::string& each : words) arguments.push_back(const_cast<char*>(each.c_str()));
  arguments.push_back(nullptr);
  const SpawnSettings settings(output);
  pid_t child = 0;
  const int error =
      posix_spawnp(&child, arguments[0], &settings.actions, &settings.attributes, arguments.data(), environ);
  if (error != 0) refuseToRun(words[0], error);
  return child;
}

// Everything up to the end; what cannot be read any more is as good as that.
std::string readToEnd(const FileDescriptor& file, const std::function<void(std::size_t)>& waiting) {
  constexpr auto kSecond = std::chrono::seconds(1);
  std::string text;
  char buffer[4096];
  const auto begin = std::chrono::steady_clock::now();
  while (true) {
    pollfd readable{file.number(), POLLIN, 0};
    const auto timeout = std::chrono::milliseconds(kSecond).count();
    if (waiting && ::poll(&readable, 1, static_cast<int>(timeout)) == 0) {
      waiting(static_cast<std::size_t>((std::chrono::steady_clock::now() - begin) / kSecond));
      continue;
    }
    const ssize_t count = retryingInterrupted([&] { return ::read(file.number(), buffer, sizeof buffer); });
    if (count <= 0) return text;
    text.append(buffer, static_cast<std::size_t>(count));
  }
}

}  // namespace

EndedProgram runProgram(const std::vector<std::string>& words,
                        const std::function<void(std::size_t)>& waiting) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) refuseToRun(words[0], errno);
  const FileDescriptor out(ends[0]);
  FileDescriptor in(ends[1]);
  const pid_t child = startProgram(words, in.number());
  in = FileDescriptor();  // so that the child's end of the pipe is the last
  EndedProgram ended;
  ended.output = readToEnd(out, waiting);
  int status = 0;
  // The child is this process's own, so that nothing but a signal comes between.
  retryingInterrupted([&] { return ::waitpid(child, &status, 0); });
  ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return ended;
}

std::string ownDirectory() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw Refused{tr("Cannot tell where this program is: %1.", error.message())};
  return program.parent_path().string();
}

}  // namespace corvane::loomerctl
