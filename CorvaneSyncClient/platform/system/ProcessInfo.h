#pragma once

#include <string>

namespace corvane {

/// This process, its user and its machine, and whether other processes live.
class ProcessInfo {
 public:
  enum class Liveness {
    alive,         ///< signal 0 could be sent
    gone,          ///< no such process
    undetermined,  ///< any other answer, "not permitted" for one
  };

  virtual ~ProcessInfo() = default;
  virtual int processId() = 0;
  virtual std::string processName() = 0;
  /// The machine's name; empty when it has none.
  virtual std::string hostName() = 0;
  /// The login name.
  virtual std::string userName() = 0;
  /// The full name of the user's account entry; the login name where the entry has none.
  virtual std::string fullUserName() = 0;
  /// `HOME`, else the password database. Without a trailing slash.
  virtual std::string homeDirectory() = 0;
  /// Where the user's programs keep what is configured: `XDG_CONFIG_HOME`, else ".config" in the home
  /// directory (XDG base directories).
  virtual std::string configurationDirectory() = 0;
  /// The user's own temporary directory, which exists: `TMPDIR`, else `XDG_RUNTIME_DIR`, else
  /// "/tmp/corvane-UID" made with mode 0700. Raises NSObjectNotAvailableException when that last one is not a
  /// directory of the user's own.
  virtual std::string temporaryDirectory() = 0;
  /// Asks with signal 0.
  virtual Liveness liveness(int processId) = 0;
};

}  // namespace corvane
