#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/TemporaryDirectory.h"

namespace corvane {

/// A server of somebody else's program for a test, with a directory of its own. It ends with this object, or
/// with the process that made it. Servers that must not run as root run as "nobody" where the test does.
class ServerProcess {
 public:
  /// Makes the directory, and in it "data", for what the server keeps.
  ServerProcess();
  ~ServerProcess();
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  /// Writes a file into the directory.
  void write(const std::string& name, const std::string& contents) const;
  /// Starts the program `arguments[0]`, and waits until it listens at the port of the loopback interface.
  /// False when it ended instead, as where somebody else took the port. Raises std::runtime_error.
  bool start(const std::vector<std::string>& arguments, int port);
  /// Ends it.
  void stop();

  const std::string& directory() const { return _directory.path(); }
  /// What it has printed.
  std::string log() const;

 private:
  TemporaryDirectory _directory;
  std::unique_ptr<ChildProcess> _process;
};

}  // namespace corvane
