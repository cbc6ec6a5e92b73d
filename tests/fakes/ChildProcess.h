#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace corvane {

/// What a program that ran to its end said.
struct ProgramResult {
  int status = 0;
  std::string output;  ///< standard output and error
};
ProgramResult runProgram(const std::vector<std::string>& arguments);

/// A program in a process of its own, killed with this object and when the test is killed. Raises
/// std::runtime_error.
class ChildProcess {
 public:
  /// The program is looked for in the path. `prepare` is called in the new process before it, and must not
  /// raise.
  explicit ChildProcess(const std::vector<std::string>& arguments, const std::function<void()>& prepare = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  pid_t number() const { return _number; }
  bool hasEnded() const;
  void signal(int number) const;
  /// Waits for its end and answers the exit status.
  int awaitEnd();

 private:
  pid_t _number;  // -1 once it was waited for
};

/// For a new process: has what it says on standard error appended to a file.
void redirectErrorsOrEnd(const std::string& file);

}  // namespace corvane
