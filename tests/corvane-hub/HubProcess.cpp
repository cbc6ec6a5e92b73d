#include "tests/corvane-hub/HubProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace corvane {

namespace {

constexpr std::chrono::seconds kPatience{60};

[[noreturn]] void failSystem(const std::string& what) {
  throw std::system_error(errno, std::system_category(), what);
}

pid_t spawn(const std::vector<std::string>& arguments, const std::function<void()>& prepare) {
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  const pid_t child = ::fork();
  if (child < 0) failSystem("fork");
  if (child > 0) return child;
  prepare();
  ::execvp(pointers[0], pointers.data());
  ::_exit(127);
}

int statusOf(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) failSystem("waitpid");
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void writeText(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
}

/// A configuration for the data of `directory`, in a file of its own.
std::string configuration(const std::string& directory, const std::string& lines) {
  static std::atomic<int> counter = 0;
  const std::string path =
      directory + "/conf-" + std::to_string(::getpid()) + "-" + std::to_string(++counter);
  writeText(path, "data = " + directory + "/data\n" + lines);
  return path;
}

}  // namespace

ProgramResult runProgram(const std::vector<std::string>& arguments) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) failSystem("pipe");
  const pid_t child = spawn(arguments, [&] {
    ::dup2(ends[1], 1);
    ::dup2(ends[1], 2);
  });
  ::close(ends[1]);
  ProgramResult result;
  char buffer[4096];
  while (true) {
    const ssize_t count = ::read(ends[0], buffer, sizeof buffer);
    if (count > 0) result.output.append(buffer, static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EINTR)) break;
  }
  ::close(ends[0]);
  result.status = statusOf(child);
  return result;
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const std::string& log) {
  const int file = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (file < 0) failSystem(log);
  _number = spawn(arguments, [&] {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::unsetenv("JOURNAL_STREAM");
    // Tests look at the memory in use, as which AddressSanitizer would count what it keeps of freed memory.
    const char* options = ::getenv("ASAN_OPTIONS");
    ::setenv("ASAN_OPTIONS", (std::string(options ? options : "") + ":quarantine_size_mb=1").c_str(), 1);
    ::dup2(file, 2);
  });
  ::close(file);
}

ChildProcess::~ChildProcess() {
  if (_number < 0) return;
  ::kill(_number, SIGKILL);
  statusOf(_number);
}

bool ChildProcess::hasEnded() const {
  siginfo_t ended{};
  ::waitid(P_PID, static_cast<id_t>(_number), &ended, WEXITED | WNOHANG | WNOWAIT);
  return ended.si_pid != 0;
}

void ChildProcess::signal(int number) const {
  if (::kill(_number, number) != 0) failSystem("kill");
}

int ChildProcess::awaitEnd() { return statusOf(std::exchange(_number, -1)); }

HubProcess::HubProcess(const std::string& directory, const std::string& lines,
                       const std::vector<std::string>& wrapper) {
  const std::string file = configuration(directory, lines.empty() ? "listen = 127.0.0.1:0\n" : lines);
  _log = file + ".log";
  std::vector<std::string> arguments = wrapper;
  arguments.insert(arguments.end(), {CORVANE_HUB, "--config", file, "serve"});
  _process = std::make_unique<ChildProcess>(arguments, _log);
  awaitLog("serves");
  const std::string text = log();
  const std::string where = "listens at 127.0.0.1:";
  const std::size_t at = text.find(where);
  if (at != std::string::npos) _port = std::stoi(text.substr(at + where.size()));
}

std::string HubProcess::log() const {
  std::ifstream file(_log, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

void HubProcess::awaitLog(const std::string& text) const {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (log().find(text) == std::string::npos) {
    if (_process->hasEnded() || std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("corvane-hub does not say \"" + text + "\" but: " + log());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void HubProcess::kill() {
  signal(SIGKILL);
  awaitEnd();
}

std::vector<std::string> straceWith(const std::vector<std::string>& options) {
  std::vector<std::string> arguments{"strace", "-D", "-f", "-q"};
  arguments.insert(arguments.end(), options.begin(), options.end());
  return arguments;
}

ProgramResult runAccountCommand(const std::string& directory, const std::vector<std::string>& arguments) {
  std::vector<std::string> all = {CORVANE_HUB, "--config", configuration(directory, {}), "account"};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return runProgram(all);
}

std::string accountCommand(const std::string& directory, const std::vector<std::string>& arguments) {
  ProgramResult result = runAccountCommand(directory, arguments);
  if (result.status != 0) throw std::runtime_error("corvane-hub account failed: " + result.output);
  if (result.output.ends_with('\n')) result.output.pop_back();
  return result.output;
}

}  // namespace corvane
