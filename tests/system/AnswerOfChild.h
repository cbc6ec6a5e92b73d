#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace corvane {

/// Runs `work` in a process of its own and answers the text that it answered, with "exit STATUS" added when
/// the process did not end well. For what holds once in a process, and for what takes two.
inline std::string answerOfChild(const std::function<std::string()>& work) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("pipe");
  const pid_t child = fork();
  if (child == 0) {
    const std::string answer = work();
    const bool isWritten =
        write(ends[1], answer.data(), answer.size()) == static_cast<ssize_t>(answer.size());
    _exit(isWritten ? 0 : 1);
  }
  close(ends[1]);
  std::string answer;
  char chunk[4096];
  for (ssize_t count; (count = read(ends[0], chunk, sizeof chunk)) > 0;) {
    answer.append(chunk, static_cast<std::size_t>(count));
  }
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  return status == 0 ? answer : answer + "exit " + std::to_string(status);
}

}  // namespace corvane
