#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/fakes/TemporaryDirectory.h"

namespace corvane {

/// The bytes of a file; none of one that cannot be read.
std::string contentsOf(const std::string& path);

/// The tool as installed in a directory of its own, with a home and a temporary directory that only its runs
/// use.
class Installation {
 public:
  Installation();

  std::string home() const { return _directory / "home"; }
  std::string bookmarks() const { return home() + "/Library/Corvane/Bookmarks.plist"; }
  std::string lock() const { return _directory / "tmp/com.keldra.Corvane.SyncClient.IsRunning"; }
  std::string tool() const { return _directory / "bin/corvanetool"; }
  std::string standardError() const { return _directory / "stderr"; }
  std::string standardOutput() const { return _directory / "stdout"; }

  /// What all runs wrote to the system log, which is one of their own.
  std::vector<std::string> systemLog() const;
  std::string systemLogFile() const { return _directory / "syslog"; }

  bool isLocked() const;
  /// Makes the lock of a run that took it so many seconds ago.
  void makeLockOfAge(int seconds) const;

 private:
  TemporaryDirectory _directory;
};

/// One run of an installed tool; ended with SIGKILL and waited for by the destructor, if need be.
class ToolRun {
 public:
  /// With `holding`, a session that succeeds stands still before it gives up its lock.
  ToolRun(const Installation& installation, std::vector<std::string> arguments, bool holding = false);
  ~ToolRun();
  ToolRun(const ToolRun&) = delete;
  ToolRun& operator=(const ToolRun&) = delete;

  /// Waits until the run stands still, or has ended; answers whether it stands still.
  bool waitUntilHeld();
  /// What it stands still at; beside it is what it tells of itself.
  const std::string& pipe() const { return _pipe; }
  /// Lets it go on.
  void letGo();
  /// Waits for its end: its exit status, or nothing when a signal ended it.
  std::optional<int> exitStatus();
  void kill();

 private:
  pid_t _process = -1;
  std::string _pipe;
  int _hold = -1;
};

/// The exit status of a run that is left alone.
std::optional<int> statusOf(const Installation& installation, std::vector<std::string> arguments);

}  // namespace corvane
