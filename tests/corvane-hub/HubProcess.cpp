#include "tests/corvane-hub/HubProcess.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace corvane {

namespace {

constexpr std::chrono::seconds kPatience{60};

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

// In the new process.
void prepareServer(const std::string& log) {
  ::unsetenv("JOURNAL_STREAM");
  // What else this process has inherited would count against the server's limit of open files.
  ::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  // Tests look at the memory in use, as which AddressSanitizer would count what it keeps of freed memory.
  const char* options = ::getenv("ASAN_OPTIONS");
  ::setenv("ASAN_OPTIONS", (std::string(options ? options : "") + ":quarantine_size_mb=1").c_str(), 1);
  redirectErrorsOrEnd(log);
}

}  // namespace

HubProcess::HubProcess(const std::string& directory, const std::string& lines,
                       const std::vector<std::string>& wrapper) {
  const std::string file = configuration(directory, lines.empty() ? "listen = 127.0.0.1:0\n" : lines);
  _log = file + ".log";
  std::vector<std::string> arguments = wrapper;
  arguments.insert(arguments.end(), {CORVANE_HUB, "--config", file, "serve"});
  _process = std::make_unique<ChildProcess>(arguments, [this] { prepareServer(_log); });
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
