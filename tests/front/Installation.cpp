#include "tests/front/Installation.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <thread>

#include "tests/fakes/PrivateSyslog.h"

namespace corvane {

namespace {

namespace fs = std::filesystem;

constexpr const char* kContents = "lib/corvane/Corvane.app/Contents/CorvaneSyncClient.app/Contents";

void require(bool succeeded, const char* call) {
  if (!succeeded) throw std::system_error(errno, std::generic_category(), call);
}

void redirect(const std::string& path, int descriptor) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(126);
}

}  // namespace

std::string contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

Installation::Installation() {
  const fs::path top = _directory.path();
  fs::create_directories(top / "tmp");
  fs::create_directory(top / "home");
  fs::create_directories(top / "bin");
  fs::create_directories(top / kContents / "Linux");
  fs::copy(CORVANE_TOOL, top / kContents / "Linux/corvanetool");
  fs::create_symlink(fs::path("..") / kContents / "Linux/corvanetool", top / "bin/corvanetool");
  fs::copy(CORVANE_RESOURCES, top / kContents / "Resources", fs::copy_options::recursive);
  const fs::path schema = top / "lib/corvane/System/Library/PrivateFrameworks/Quillet.framework/Resources";
  fs::create_directories(schema);
  fs::copy(fs::path(CORVANE_RESOURCES) / "Corvane.syncschema", schema);
  const fs::path agent = top / "lib/corvane/System/Library/Frameworks/Nuvolo.framework";
  fs::create_directories(agent);
  fs::copy(CORVANE_HOLDING_AGENT, agent / "libNuvolo.so");
}

std::vector<std::string> Installation::systemLog() const { return linesOfPrivateSyslog(systemLogFile()); }

bool Installation::isLocked() const { return fs::exists(lock()); }

void Installation::makeLockOfAge(int seconds) const {
  require(mkdir(lock().c_str(), 0700) == 0, "mkdir");
  timespec times[2];
  require(clock_gettime(CLOCK_REALTIME, &times[0]) == 0, "clock_gettime");
  times[0].tv_sec -= seconds;
  times[1] = times[0];
  require(utimensat(AT_FDCWD, lock().c_str(), times, 0) == 0, "utimensat");
}

ToolRun::ToolRun(const Installation& installation, std::vector<std::string> arguments, bool holding) {
  static int runs = 0;
  if (holding) {
    _pipe = installation.home() + "/hold" + std::to_string(++runs);
    require(mkfifo(_pipe.c_str(), 0600) == 0, "mkfifo");
  }
  arguments.insert(arguments.begin(), installation.tool());
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  _process = fork();
  require(_process >= 0, "fork");
  if (_process != 0) return;
  setenv("HOME", installation.home().c_str(), 1);
  setenv("TMPDIR", fs::path(installation.lock()).parent_path().c_str(), 1);
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  setenv("LC_ALL", "C", 1);
  usePrivateSyslog(installation.systemLogFile());
  if (holding) setenv("CORVANE_TEST_HOLD", _pipe.c_str(), 1);
  redirect(installation.standardOutput(), STDOUT_FILENO);
  redirect(installation.standardError(), STDERR_FILENO);
  execv(argv[0], argv.data());
  _exit(127);
}

ToolRun::~ToolRun() {
  if (_process > 0) {
    kill();
    exitStatus();
  }
  if (_hold >= 0) close(_hold);
}

bool ToolRun::waitUntilHeld() {
  for (;;) {
    // Succeeds once the run has the other end open.
    _hold = open(_pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (_hold >= 0) return true;
    siginfo_t ended{};
    require(waitid(P_PID, static_cast<id_t>(_process), &ended, WEXITED | WNOHANG | WNOWAIT) == 0, "waitid");
    if (ended.si_pid == _process) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void ToolRun::letGo() {
  close(_hold);
  _hold = -1;
}

std::optional<int> ToolRun::exitStatus() {
  int status = 0;
  while (waitpid(_process, &status, 0) < 0) require(errno == EINTR, "waitpid");
  _process = -1;
  return WIFEXITED(status) ? std::optional(WEXITSTATUS(status)) : std::nullopt;
}

void ToolRun::kill() { require(::kill(_process, SIGKILL) == 0, "kill"); }

std::optional<int> statusOf(const Installation& installation, std::vector<std::string> arguments) {
  return ToolRun(installation, std::move(arguments)).exitStatus();
}

}  // namespace corvane
