#pragma once

#include <sys/types.h>

#include <cstdio>
#include <memory>
#include <string>

#include "tests/fakes/ChildProcess.h"

namespace corvane {

/// A running corvane_store_process, which takes one command a line and answers each with a line. Killed with
/// this object.
class TalkingProcess {
 public:
  /// `directory` is the one that it locks and saves in.
  explicit TalkingProcess(const std::string& directory);
  ~TalkingProcess();
  TalkingProcess(const TalkingProcess&) = delete;
  TalkingProcess& operator=(const TalkingProcess&) = delete;

  /// Sends a command and waits for its answer; "(end)" when the process has ended instead.
  std::string ask(const std::string& command);
  void send(const std::string& command);
  std::string answer();
  /// Ends it with SIGKILL and waits until the system has forgotten it.
  void kill() { _process.reset(); }
  pid_t id() const { return _id; }

 private:
  std::unique_ptr<ChildProcess> _process;
  pid_t _id = -1;
  FILE* _commands = nullptr;
  FILE* _answers = nullptr;
};

}  // namespace corvane
