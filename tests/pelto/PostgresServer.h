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

/// Runs statements in one connection of its own; the first column of the last one's first row, empty when
/// there is none. Raises PostgresError.
std::string runSql(const std::string& url, const std::string& statements);

/// A port of the loopback interface that nobody listens on at this moment.
int freePort();

/// A PostgreSQL server of the test's own, in a private directory, on the loopback interface and on a socket
/// in that directory. It starts when this object is made, with the online service set up in the database
/// "hub", and ends with it, without leaving anything behind; also when the test is killed. Making one takes a
/// second or two: one serves a whole test program, with an account for each test.
///
/// Everything raises std::runtime_error when it fails.
class PostgresServer {
 public:
  PostgresServer();
  ~PostgresServer();
  PostgresServer(const PostgresServer&) = delete;
  PostgresServer& operator=(const PostgresServer&) = delete;

  /// Makes an account for the online service in `database`; the URL to reach it, with its password.
  std::string addAccount(const std::string& name, const std::string& database = "hub");
  /// As `addAccount`, with a name that no account has had.
  std::string addAccount();

  /// An empty database.
  void makeDatabase(const std::string& name);
  /// Runs a program with the server's programs in its path; what it printed. Raises with what it printed when
  /// it fails.
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

  /// SIGKILL, as in a loss of power. Returns when the server is gone.
  void kill();
  /// Ends it in order, cutting off whoever is connected.
  void stop();
  /// Starts the server again, where it stood and on the same port. Returns when it answers.
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
  int _watcher = -1;   ///< its end is what the watcher waits for
  pid_t _server = -1;  ///< -1 while it does not run
  int _accounts = 0;
};

/// The one server of this test program, made at the first call.
PostgresServer& postgresServer();

}  // namespace corvane
