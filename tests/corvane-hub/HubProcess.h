#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/fakes/ChildProcess.h"

namespace corvane {

/// A real corvane-hub in a directory of the test's, on a port of the loopback interface. Killed with this
/// object, and when the test is killed. Several may serve one directory. Everything raises std::runtime_error
/// when it fails.
class HubProcess {
 public:
  /// Starts it on `directory`/data. `lines` go into the configuration instead of "listen = 127.0.0.1:0";
  /// `wrapper` stands before the program, such as strace.
  explicit HubProcess(const std::string& directory, const std::string& lines = {},
                      const std::vector<std::string>& wrapper = {});
  int port() const { return _port; }
  pid_t process() const { return _process->number(); }
  /// What it has logged so far.
  std::string log() const;
  /// Returns once `text` is in the log.
  void awaitLog(const std::string& text) const;
  /// SIGKILL; returns when the process is gone.
  void kill();
  void signal(int number) const { _process->signal(number); }
  /// Waits for the end that it makes itself, and answers its exit status.
  int awaitEnd() { return _process->awaitEnd(); }

 private:
  std::string _log;
  std::unique_ptr<ChildProcess> _process;
  int _port = 0;
};

/// What stands before a program whose system calls strace watches, with these options. The process is the
/// program's own.
std::vector<std::string> straceWith(const std::vector<std::string>& options);

/// Runs "corvane-hub account …" on `directory`/data.
ProgramResult runAccountCommand(const std::string& directory, const std::vector<std::string>& arguments);
/// As above; what it printed, without the line feed. Raises std::runtime_error when it refuses.
std::string accountCommand(const std::string& directory, const std::vector<std::string>& arguments);

}  // namespace corvane
