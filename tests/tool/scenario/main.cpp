// corvane-scenario FILE…: runs scripted sessions and prints what happened as an XML property list. kUsage
// explains its exit statuses.

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "tests/tool/scenario/Scenario.h"
#include "tests/tool/scenario/ScenarioRun.h"

namespace {

using namespace corvane;
using namespace corvane::scenario;

constexpr int kRan = 0;
constexpr int kFailed = 1;
constexpr int kMalformed = 2;

constexpr const char* kUsage =
    "usage: corvane-scenario FILE...\n"
    "\n"
    "Exit status: 0 when the sessions ran, whatever they answered;\n"
    "1 when one did not run to its end or the result cannot be written;\n"
    "2 when a scenario cannot be read or is malformed, or none is named.\n";

void complain(const std::string& file, const std::string& cause) {
  std::fprintf(stderr, "corvane-scenario: %s: %s\n", file.c_str(), cause.c_str());
}

Scenario readScenarioFile(const std::string& file) {
  LinuxFileSystem files;
  std::string contents;
  if (const std::error_code error = files.read(file, contents)) throw MalformedScenario(error.message());
  return readScenario(readPropertyList(contents));
}

[[noreturn]] void failWithErrno(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

void writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) failWithErrno("write");
    if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

std::string readAll(int descriptor) {
  std::string bytes;
  char buffer[65536];
  for (;;) {
    const ssize_t count = read(descriptor, buffer, sizeof buffer);
    if (count == 0) return bytes;
    if (count < 0 && errno != EINTR) failWithErrno("read");
    if (count > 0) bytes.append(buffer, static_cast<std::size_t>(count));
  }
}

[[noreturn]] void runAsChild(const std::string& file, const Scenario& scenario, int output) {
  int status = kFailed;
  try {
    writeAll(output, writeBinaryPropertyList(runScenario(scenario)));
    status = kRan;
  } catch (const std::exception& exception) {
    complain(file, exception.what());
  }
  _exit(status);
}

// Each scenario has a process of its own, since the program keeps some state for the whole process.
Value runInChild(const std::string& file, const Scenario& scenario) {
  int ends[2];
  if (pipe(ends) != 0) failWithErrno("pipe");
  const pid_t child = fork();
  if (child < 0) failWithErrno("fork");
  if (child == 0) {
    close(ends[0]);
    runAsChild(file, scenario, ends[1]);
  }
  close(ends[1]);
  const std::string bytes = readAll(ends[0]);
  close(ends[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) failWithErrno("waitpid");
  }
  if (WIFSIGNALED(status)) throw std::runtime_error("ended by signal " + std::to_string(WTERMSIG(status)));
  if (WEXITSTATUS(status) != 0) throw std::runtime_error("did not run to its end");
  return readPropertyList(bytes);
}

int printResults(const std::vector<std::string>& files, const std::vector<Scenario>& scenarios) {
  std::vector<Value> results;
  for (std::size_t i = 0; i < scenarios.size(); ++i) {
    try {
      results.push_back(runInChild(files[i], scenarios[i]));
    } catch (const std::exception& exception) {
      complain(files[i], exception.what());
      return kFailed;
    }
  }
  const std::string text =
      writeXmlPropertyList(results.size() == 1 ? results.front() : Value(Array(results)));
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0
             ? kRan
             : kFailed;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> files(argv + (argc > 0 ? 1 : 0), argv + argc);
  if (files.empty()) {
    std::fputs(kUsage, stderr);
    return kMalformed;
  }
  std::vector<Scenario> scenarios;
  for (const std::string& file : files) {
    try {
      scenarios.push_back(readScenarioFile(file));
    } catch (const std::exception& exception) {
      complain(file, exception.what());
      return kMalformed;
    }
  }
  try {
    return printResults(files, scenarios);
  } catch (const std::exception& exception) {
    complain(files.size() == 1 ? files.front() : "result", exception.what());
    return kFailed;
  }
}
