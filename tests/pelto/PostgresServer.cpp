#include "tests/pelto/PostgresServer.h"

#include <fcntl.h>
#include <libpq-fe.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <system_error>
#include <thread>

#include "tests/fakes/FreePort.h"

namespace corvane {

namespace {

constexpr const char* kAdministrator = "administrator";
constexpr const char* kAdministratorPassword = "superuser of a test";
constexpr const char* kAdministratorPasswordInUrl = "superuser%20of%20a%20test";
constexpr std::chrono::milliseconds kPause{20};
constexpr std::chrono::seconds kTimeout{60};

[[noreturn]] void failSystem(const std::string& operation) {
  throw std::system_error(errno, std::system_category(), operation);
}

std::string contentsOf(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

// PostgreSQL refuses to run as root: the user to be then, "postgres" or else "nobody".
const passwd* otherUser() {
  if (::geteuid() != 0) return nullptr;
  if (const passwd* user = ::getpwnam("postgres")) return user;
  if (const passwd* user = ::getpwnam("nobody")) return user;
  throw std::runtime_error("PostgreSQL does not run as root, and there is no other user to run it as");
}

// Runs `prepare` and then a program in a process of its own; `arguments[0]` is its path.
pid_t spawn(const std::vector<std::string>& arguments, const std::function<void()>& prepare) {
  std::vector<char*> pointers;
  for (const std::string& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
  pointers.push_back(nullptr);
  const pid_t child = ::fork();
  if (child < 0) failSystem("fork");
  if (child > 0) return child;
  prepare();
  ::execv(pointers[0], pointers.data());
  ::_exit(127);
}

void becomeOrEnd(const passwd* user) {
  if (user && (::setgid(user->pw_gid) != 0 || ::setuid(user->pw_uid) != 0)) ::_exit(126);
}

void redirectOrEnd(const std::string& path) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  const int nothing = ::open("/dev/null", O_RDONLY);
  if (file < 0 || nothing < 0 || ::dup2(nothing, 0) < 0 || ::dup2(file, 1) < 0 || ::dup2(file, 2) < 0)
    ::_exit(125);
}

int statusOf(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) failSystem("waitpid");
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs a program to its end; what it printed. Raises with that when it fails.
std::string outputOf(const std::vector<std::string>& arguments, const std::string& programs = {}) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) failSystem("pipe");
  const std::string path = programs + ":/usr/bin:/bin";
  const pid_t child = spawn(arguments, [&] {
    ::dup2(ends[1], 1);
    ::dup2(ends[1], 2);
    ::setenv("PATH", path.c_str(), 1);
  });
  ::close(ends[1]);
  std::string output;
  char buffer[4096];
  while (true) {
    const ssize_t count = ::read(ends[0], buffer, sizeof buffer);
    if (count > 0) output.append(buffer, static_cast<std::size_t>(count));
    if (count == 0 || (count < 0 && errno != EINTR)) break;
  }
  ::close(ends[0]);
  const int status = statusOf(child);
  if (status != 0) {
    throw std::runtime_error(arguments[0] + " failed with status " + std::to_string(status) + ": " + output);
  }
  return output;
}

// The directory with the server's programs: what pg_config says, else the newest of Debian's.
std::string findPrograms() {
  std::vector<std::string> candidates;
  try {
    const std::string answer = outputOf({"/usr/bin/pg_config", "--bindir"});
    candidates.push_back(answer.substr(0, answer.find('\n')));
  } catch (const std::runtime_error&) {
    // not every server comes with it
  }
  int newest = 0;
  std::error_code ignored;  // no such directory: no such programs
  for (const auto& entry : std::filesystem::directory_iterator("/usr/lib/postgresql", ignored)) {
    const int version = std::atoi(entry.path().filename().c_str());
    if (version <= newest) continue;
    newest = version;
    candidates.push_back(entry.path() / "bin");
  }
  for (const std::string& candidate : candidates) {
    if (::access((candidate + "/initdb").c_str(), X_OK) == 0) return candidate;
  }
  throw std::runtime_error("there is no PostgreSQL server: install the package postgresql");
}

// The server's process by its own note, as long as it really is one over this directory; 0 when there is
// none.
pid_t serverOver(const std::string& directory) {
  const pid_t process = std::atoi(contentsOf(directory + "/data/postmaster.pid").c_str());
  if (process <= 0) return 0;
  const std::string command = contentsOf("/proc/" + std::to_string(process) + "/cmdline");
  return command.find(directory + "/data") != std::string::npos ? process : 0;
}

// What the watcher does: waits for the test's end, however it comes, and then clears up.
[[noreturn]] void watch(int socket, const std::string& directory) {
  ::setsid();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) ::signal(signal, SIG_IGN);
  // Whoever waits for the test's output must not wait for this process.
  for (int file = 0; file < 1024; ++file) {
    if (file != socket) ::close(file);
  }
  char byte;
  while (::read(socket, &byte, 1) < 0 && errno == EINTR) {
  }
  if (const pid_t server = serverOver(directory)) {
    ::kill(server, SIGQUIT);
    for (int i = 0; i < 500 && serverOver(directory) != 0; ++i) ::usleep(10'000);
    if (serverOver(directory) == server) ::kill(server, SIGKILL);
  }
  std::error_code ignored;  // there is nobody left to tell
  std::filesystem::remove_all(directory, ignored);
  ::_exit(0);
}

struct ConnectionDeleter {
  void operator()(PGconn* connection) const { PQfinish(connection); }
};

struct ResultDeleter {
  void operator()(PGresult* result) const { PQclear(result); }
};

}  // namespace

// Below those that the system gives to outgoing connections, which would take it between two starts.
std::string runSql(const std::string& url, const std::string& statements) {
  const std::unique_ptr<PGconn, ConnectionDeleter> connection(PQconnectdb(url.c_str()));
  if (PQstatus(connection.get()) != CONNECTION_OK) throw PostgresError(PQerrorMessage(connection.get()), "");
  PQsetNoticeProcessor(
      connection.get(), [](void*, const char*) {}, nullptr);
  const std::unique_ptr<PGresult, ResultDeleter> result(PQexec(connection.get(), statements.c_str()));
  const ExecStatusType status = PQresultStatus(result.get());
  if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
    const char* state = PQresultErrorField(result.get(), PG_DIAG_SQLSTATE);
    throw PostgresError(statements.substr(0, 200) + ": " + PQerrorMessage(connection.get()),
                        state ? state : "");
  }
  return PQntuples(result.get()) > 0 && PQnfields(result.get()) > 0 ? PQgetvalue(result.get(), 0, 0) : "";
}

PostgresServer::PostgresServer() : _programs(findPrograms()), _port(freePort()) {
  std::string pattern = std::filesystem::canonical(std::filesystem::temp_directory_path()).string() +
                        "/corvane-postgres-XXXXXX";
  if (!::mkdtemp(pattern.data())) failSystem(pattern);
  _directory = pattern;
  watchOver();
  initialise();
  launch();
  for (int tries = 0; !awaitAnswer(); ++tries) {  // somebody else may have taken the port
    if (tries == 5) throw std::runtime_error("PostgreSQL does not start: " + log());
    _port = freePort();
    launch();
  }
  makeDatabase("hub");
  setUpHub("hub");
}

PostgresServer::~PostgresServer() {
  if (_server > 0) end(SIGQUIT);
  ::shutdown(_watcher, SHUT_WR);
  char byte;  // comes never: the watcher ends when it is done
  while (::read(_watcher, &byte, 1) < 0 && errno == EINTR) {
  }
  ::close(_watcher);
}

void PostgresServer::watchOver() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) failSystem("socketpair");
  const pid_t child = ::fork();
  if (child < 0) failSystem("fork");
  if (child == 0) {
    ::close(ends[0]);
    // A grandchild is nobody's child: it outlives whoever ends the test with its children.
    if (::fork() == 0) watch(ends[1], _directory);
    ::_exit(0);
  }
  ::close(ends[1]);
  statusOf(child);
  _watcher = ends[0];
}

void PostgresServer::initialise() {
  const passwd* user = otherUser();
  if (user && ::chown(_directory.c_str(), user->pw_uid, user->pw_gid) != 0) failSystem("chown " + _directory);
  const std::string passwordFile = _directory + "/password", logFile = _directory + "/log";
  std::ofstream(passwordFile) << kAdministratorPassword << '\n';
  std::filesystem::permissions(passwordFile, std::filesystem::perms(0644));  // within a private directory
  const pid_t child =
      spawn({_programs + "/initdb", "-D", _directory + "/data", "-U", kAdministrator,
             "--pwfile=" + passwordFile, "--auth=scram-sha-256", "-E", "UTF8", "--locale=C", "--no-sync"},
            [&] {
              becomeOrEnd(user);
              redirectOrEnd(logFile);
            });
  if (statusOf(child) != 0) throw std::runtime_error("initdb failed: " + log());
}

void PostgresServer::launch() {
  const passwd* user = otherUser();
  const std::string logFile = _directory + "/log";
  _server =
      spawn({_programs + "/postgres", "-D", _directory + "/data", "-p", std::to_string(_port), "-h",
             "127.0.0.1", "-k", _directory, "-F", "-c", "max_wal_size=4GB", "-c", "max_connections=200"},
            [&] {
              ::setsid();  // an interrupt from the terminal goes to the test alone
              becomeOrEnd(user);
              redirectOrEnd(logFile);
              if (::chdir("/") != 0) ::_exit(124);
            });
}

// False when the server ended instead.
bool PostgresServer::awaitAnswer() {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  while (PQping(administratorUrl("postgres").c_str()) != PQPING_OK) {
    int status = 0;
    if (::waitpid(_server, &status, WNOHANG) == _server) {
      _server = -1;
      return false;
    }
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error("PostgreSQL does not answer: " + log());
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

void PostgresServer::start() {
  const auto deadline = std::chrono::steady_clock::now() + kTimeout;
  launch();
  while (!awaitAnswer()) {  // processes of a killed server may take a moment to see that it is gone
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error("PostgreSQL does not start again: " + log());
    std::this_thread::sleep_for(kPause);
    launch();
  }
}

void PostgresServer::end(int signal) {
  ::kill(_server, signal);
  statusOf(_server);
  _server = -1;
}

void PostgresServer::kill() { end(SIGKILL); }

void PostgresServer::stop() { end(SIGINT); }

std::string PostgresServer::log() const { return contentsOf(_directory + "/log"); }

void PostgresServer::makeDatabase(const std::string& name) {
  administer("CREATE DATABASE \"" + name + "\"", "postgres");
}

std::string PostgresServer::run(const std::vector<std::string>& arguments) const {
  return outputOf(arguments, _programs);
}

std::string PostgresServer::setUpHub(const std::string& database, const std::string& script) {
  return run({script.empty() ? CORVANE_SCRIPTS "/hub-setup" : script, administratorUrl(database)});
}

std::string PostgresServer::hubAccount(const std::string& action, const std::string& name,
                                       const std::string& database) {
  return run({CORVANE_SCRIPTS "/hub-account", administratorUrl(database), action, name});
}

std::string PostgresServer::addAccount(const std::string& name, const std::string& database) {
  const std::string password = hubAccount("add", name, database);
  return url(name, password.substr(0, password.find('\n')), database);
}

std::string PostgresServer::addAccount() { return addAccount("account" + std::to_string(++_accounts)); }

std::string PostgresServer::administer(const std::string& statements, const std::string& database) {
  return runSql(administratorUrl(database), statements);
}

std::string PostgresServer::url(const std::string& user, const std::string& password,
                                const std::string& database) const {
  return "postgresql://" + user + ":" + password + "@127.0.0.1:" + std::to_string(_port) + "/" + database;
}

std::string PostgresServer::administratorUrl(const std::string& database) const {
  return url(kAdministrator, kAdministratorPasswordInUrl, database);
}

PostgresServer& postgresServer() {
  static PostgresServer server;
  return server;
}

}  // namespace corvane
