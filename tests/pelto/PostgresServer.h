#pragma once

#include <sys/types.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace corvane {

/// A statement that the server refused.
class PostgresError : public std::runtime_error {
 public:
  PostgresError(const std::string& message, std::string state)
      : std::runtime_error(message), _state(std::move(state)) {}
  /// SQLSTATE; empty when there was no answer.
  const std::string& state() const { return _state; }

 private:
  std::string _state;
};

/// Runs statements in a connection of their own. Returns the first column of the last result's first row,
/// empty when there is none. Raises PostgresError.
std::string runSql(const std::string& url, const std::string& statements);

/// A PostgreSQL server for tests in a private directory, on the loopback interface and on a socket in that
/// directory. The constructor starts it with the online service set up in the database "hub"; the destructor
/// stops it. It leaves nothing behind, even when the test is killed. Starting takes a second or two, so one
/// server serves a whole test program, with an account for each test.
///
/// Every function raises std::runtime_error when it fails.
class PostgresServer {
 public:
  PostgresServer();
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  /// Makes an account for the online service in `database`. Returns its URL with the password.
  std::string addAccount(const std::string& name, const std::string& database = "hub");
  /// As above, with a name that no account has had.
  std::string addAccount();

  /// Makes an empty database.
  void makeDatabase(const std::string& name);
  /// Runs a program with the server's programs in its path, and returns its output. The exception's text is
  /// the output of a program that fails.
  std::string run(const std::vector<std::string>& arguments) const;
  /// Runs scripts/hub-setup (or the copy of it at `script`) on the database, as `run` does.
  std::string setUpHub(const std::string& database, const std::string& script = {});
  /// Runs scripts/hub-account on the database, as `run` does.
  std::string hubAccount(const std::string& action, const std::string& name,
                         const std::string& database = "hub");

  /// Runs statements as the server's superuser, as `runSql` does.
  std::string administer(const std::string& statements, const std::string& database = "hub");

  std::string url(const std::string& user, const std::string& password,
                  const std::string& database = "hub") const;
  std::string administratorUrl(const std::string& database = "hub") const;
  int port() const { return _port; }
  /// The directory of the socket.
  const std::string& directory() const { return _directory; }
  /// The directory of initdb, psql and the others.
  const std::string& programs() const { return _programs; }

  /// What the server has logged so far.
  std::string log() const;

  /// Sends SIGKILL, like a power failure. Returns when the server is gone.
  void kill();
  /// Stops it in the normal way and ends all connections.
  void stop();
  /// Starts the server again in the same directory and on the same port. Returns when it answers.
  void start();

 private:
  void watchOver();
  void initialise();
  void launch();
  bool awaitAnswer();
  void end(int signal);

  std::string _programs;
  std::string _directory;
  int _port = 0;
  int _watcher = -1;   ///< the watcher waits for this descriptor to close
  pid_t _server = -1;  ///< -1 when it is not running
  int _accounts = 0;
};

/// The one server of this test program, made at the first call.
PostgresServer& postgresServer();

}  // namespace corvane
