#pragma once

#include <sys/types.h>

#include <cstdio>
#include <string>
#include <vector>

namespace corvane {

/// A running corvane_store_process, which takes one command a line and answers each with a line. Ended, if
/// need be with SIGKILL, and waited for by the destructor.
class ChildProcess {
 public:
  /// `directory` is the one that it locks and saves in.
  explicit ChildProcess(const std::string& directory);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// Sends a command and waits for its answer; "(end)" when the process has ended instead.
  std::string ask(const std::string& command);
  void send(const std::string& command);
  std::string answer();
  /// Ends it with SIGKILL and waits until the system has forgotten it.
  void kill();
  pid_t id() const { return _id; }

 private:
  pid_t _id = -1;
  FILE* _commands = nullptr;
  FILE* _answers = nullptr;
};

}  // namespace corvane
