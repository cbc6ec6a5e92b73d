#include "tests/store/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace corvane {

namespace {

void check(int error, const char* what) {
  if (error) throw std::system_error(error, std::system_category(), what);
}

struct Pipe {
  // Closed on exec, so that no other child holds an end of it open.
  Pipe() { check(pipe2(ends, O_CLOEXEC) ? errno : 0, "pipe2"); }
  int ends[2];
};

}  // namespace

ChildProcess::ChildProcess(const std::string& directory) {
  const Pipe commands;
  const Pipe answers;
  posix_spawn_file_actions_t actions;
  check(posix_spawn_file_actions_init(&actions), "posix_spawn_file_actions_init");
  check(posix_spawn_file_actions_adddup2(&actions, commands.ends[0], STDIN_FILENO), "adddup2");
  check(posix_spawn_file_actions_adddup2(&actions, answers.ends[1], STDOUT_FILENO), "adddup2");
  std::string program = CORVANE_STORE_PROCESS;
  std::string argument = directory;
  char* const arguments[] = {program.data(), argument.data(), nullptr};
  check(posix_spawn(&_id, program.c_str(), &actions, nullptr, arguments, environ), program.c_str());
  posix_spawn_file_actions_destroy(&actions);
  close(commands.ends[0]);
  close(answers.ends[1]);
  _commands = fdopen(commands.ends[1], "w");
  _answers = fdopen(answers.ends[0], "r");
}

ChildProcess::~ChildProcess() {
  if (_id > 0) kill();
  fclose(_commands);
  fclose(_answers);
}

std::string ChildProcess::ask(const std::string& command) {
  send(command);
  return answer();
}

void ChildProcess::send(const std::string& command) {
  std::fprintf(_commands, "%s\n", command.c_str());
  std::fflush(_commands);
}

std::string ChildProcess::answer() {
  char line[512];
  if (!std::fgets(line, sizeof line, _answers)) return "(end)";
  std::string text = line;
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

void ChildProcess::kill() {
  ::kill(_id, SIGKILL);
  waitpid(_id, nullptr, 0);  // until then it would count as alive
  _id = -1;
}

}  // namespace corvane
