#include "tests/fakes/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace corvane {

namespace {

[[noreturn]] void failSystem(const std::string& what) {
  throw std::system_error(errno, std::system_category(), what);
}

int statusOf(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) failSystem("waitpid");
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

ProgramResult runProgram(const std::vector<std::string>& arguments) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) failSystem("pipe");
  ChildProcess child(arguments, [&] {
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
  result.status = child.awaitEnd();
  return result;
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments, const std::function<void()>& prepare) {
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  _number = ::fork();
  if (_number < 0) failSystem("fork");
  if (_number > 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (prepare) prepare();
  ::execvp(pointers[0], pointers.data());
  ::_exit(127);
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

void redirectErrorsOrEnd(const std::string& file) {
  const int opened = ::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (opened < 0 || ::dup2(opened, 2) < 0) ::_exit(126);
}

}  // namespace corvane
