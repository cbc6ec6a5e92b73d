#include "tests/store/TalkingProcess.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace corvane {

namespace {

struct Pipe {
  // Closed on exec, so that no other child holds an end of it open.
  Pipe() {
    if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::system_category(), "pipe2");
  }
  int ends[2];
};

}  // namespace

TalkingProcess::TalkingProcess(const std::string& directory) {
  const Pipe commands;
  const Pipe answers;
  _process = std::make_unique<ChildProcess>(std::vector<std::string>{CORVANE_STORE_PROCESS, directory}, [&] {
    ::dup2(commands.ends[0], STDIN_FILENO);
    ::dup2(answers.ends[1], STDOUT_FILENO);
  });
  _id = _process->number();
  ::close(commands.ends[0]);
  ::close(answers.ends[1]);
  _commands = ::fdopen(commands.ends[1], "w");
  _answers = ::fdopen(answers.ends[0], "r");
}

TalkingProcess::~TalkingProcess() {
  kill();
  std::fclose(_commands);
  std::fclose(_answers);
}

std::string TalkingProcess::ask(const std::string& command) {
  send(command);
  return answer();
}

void TalkingProcess::send(const std::string& command) {
  std::fprintf(_commands, "%s\n", command.c_str());
  std::fflush(_commands);
}

std::string TalkingProcess::answer() {
  char line[512];
  if (!std::fgets(line, sizeof line, _answers)) return "(end)";
  std::string text = line;
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace corvane
