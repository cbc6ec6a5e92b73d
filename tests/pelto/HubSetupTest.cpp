#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "tests/fakes/FreePort.h"
#include "tests/pelto/HubFixture.h"

// Setting a server up, its accounts, a pooler in front of it, and the fixture itself.

namespace corvane::pelto {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

template <typename Work>
std::string messageOf(Work work) {
  try {
    work();
    return {};
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

// How many columns have statistics that tell of what accounts hold.
constexpr const char* kTellingStatistics =
    "SELECT count(*) FROM pg_statistic s JOIN pg_attribute a ON a.attrelid = s.starelid AND a.attnum = "
    "s.staattnum JOIN pg_class c ON c.oid = s.starelid WHERE c.relnamespace = 'corvane_hub'::regnamespace"
    " AND c.relkind <> 'i' AND a.attname NOT IN ('account', 'id')";

class SetupTest : public HubTest {};

TEST_F(SetupTest, RunningTheSetUpAgainChangesNothing) {
  const HubRecord a = bookmark("A", "http://a/");
  give({a});
  const std::string schema =
      "SELECT md5(string_agg(concat(c.relname, c.relkind, c.relacl), ',' ORDER BY "
      "c.relname)) FROM pg_class c WHERE c.relnamespace = 'corvane_hub'::regnamespace";
  const std::string before = server.administer(schema);
  EXPECT_THAT(server.setUpHub("hub"), HasSubstr("The online service in this database is of version 3.\n"));
  EXPECT_EQ(server.administer(schema), before);
  EXPECT_EQ(held(), text({a}));
}

TEST_F(SetupTest, DatabasesThatAccountsMayConnectToAreNamed) {
  server.makeDatabase("another");
  const std::string warning = "the accounts may also connect to these databases of the server:";
  EXPECT_THAT(server.setUpHub("hub"), testing::ContainsRegex(warning + " another, .*postgres"));
  const std::string open = "SELECT datname FROM pg_database WHERE has_database_privilege('" + user +
                           "', oid, 'CONNECT') AND datallowconn AND datname <> 'hub' LIMIT 1";
  std::vector<std::string> closed;
  for (std::string each = server.administer(open); !each.empty(); each = server.administer(open)) {
    server.administer("REVOKE CONNECT ON DATABASE \"" + each + "\" FROM PUBLIC");
    closed.push_back(each);
  }
  EXPECT_EQ(server.setUpHub("hub"), "The online service in this database is of version 3.\n");
  for (const std::string& each : closed)
    server.administer("GRANT CONNECT ON DATABASE \"" + each + "\" TO PUBLIC");
}

TEST_F(SetupTest, SeveralSetUpsAtOnceMakeOneService) {
  server.makeDatabase("together");
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back([this] { EXPECT_EQ(messageOf([&] { server.setUpHub("together"); }), ""); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(server.administer("SELECT number FROM corvane_hub.version", "together"), "3");
}

TEST_F(SetupTest, ANewerServiceIsRefused) {
  server.makeDatabase("newer");
  server.setUpHub("newer");
  server.administer("UPDATE corvane_hub.version SET number = 7", "newer");
  EXPECT_THAT(messageOf([&] { server.setUpHub("newer"); }),
              HasSubstr("the schema is of version 7, and these scripts know versions up to 3"));
  EXPECT_EQ(server.administer("SELECT number FROM corvane_hub.version", "newer"), "7");
}

TEST_F(SetupTest, AMissingDatabaseIsNamed) {
  EXPECT_THAT(messageOf([&] { server.setUpHub("nowhere"); }),
              AllOf(HasSubstr("database \"nowhere\" does not exist"), Not(HasSubstr("older"))));
}

// The scripts as they are installed, in one directory, with a migration more.
class MigrationTest : public SetupTest {
 protected:
  void install(const std::string& migration) {
    namespace fs = std::filesystem;
    const auto copy = [&](const fs::path& file) {
      fs::copy(file, directory / file.filename(), fs::copy_options::overwrite_existing);
    };
    fs::create_directories(directory);
    copy(CORVANE_SCRIPTS "/hub-setup");
    for (const auto& file : fs::directory_iterator(CORVANE_SCRIPTS "/../resources/hub")) copy(file);
    std::ofstream(directory / "004-more.sql") << migration;
  }
  std::string setUp() {
    return messageOf([&] { server.setUpHub(database, directory / "hub-setup"); });
  }
  std::string answer(const std::string& sql) { return server.administer(sql, database); }

  const std::filesystem::path directory = platform.directory / "closed/hub";
  const std::string database = "migrated" + std::to_string(++_databases);

 private:
  static inline int _databases = 0;
};

TEST_F(MigrationTest, MissingMigrationsAreAppliedOnce) {
  server.makeDatabase(database);
  server.setUpHub(database);
  PostgresHub old(server.addAccount(user + "_old", database), computer);
  give(old, {});
  install("CREATE TABLE corvane_hub.more(a int); INSERT INTO corvane_hub.more VALUES(1);");
  EXPECT_EQ(setUp(), "");
  EXPECT_EQ(setUp(), "");
  EXPECT_EQ(answer("SELECT count(*) FROM corvane_hub.more"), "1");
  EXPECT_EQ(answer("SELECT number FROM corvane_hub.version"), "4");
  EXPECT_EQ(failureOf([&] { give(old, {}); }), "")
      << "a service that moved on under a program that it serves";
}

TEST_F(MigrationTest, AFailedMigrationLeavesTheVersionBefore) {
  server.makeDatabase(database);
  install("CREATE TABLE corvane_hub.more(a int); SELECT 1 / 0;");
  EXPECT_THAT(setUp(), HasSubstr("division by zero"));
  EXPECT_EQ(answer("SELECT number FROM corvane_hub.version"), "3");
  EXPECT_EQ(answer("SELECT to_regclass('corvane_hub.more') IS NULL"), "t");
  install("CREATE TABLE corvane_hub.more(a int);");
  EXPECT_EQ(setUp(), "");
  EXPECT_EQ(answer("SELECT number FROM corvane_hub.version"), "4");
}

// As for the server's user, where somebody starts the script for him within a home that is closed.
TEST_F(MigrationTest, ADirectoryInAClosedHomeServes) {
  server.makeDatabase(database);
  install("SELECT 1;");
  std::vector<std::string> command = {"/bin/bash", "-c", "cd \"$0\" && chmod 0 .. && exec \"$@\"", directory};
  // Modes bind root as well once it has no capabilities.
  if (::geteuid() == 0) command.insert(command.end(), {"setpriv", "--bounding-set=-all", "--inh-caps=-all"});
  command.insert(command.end(), {"./hub-setup", server.administratorUrl(database)});
  EXPECT_EQ(messageOf([&] { server.run(command); }), "");
  EXPECT_EQ(::chmod((platform.directory / "closed").c_str(), 0700), 0);
  EXPECT_EQ(answer("SELECT number FROM corvane_hub.version"), "4");
}

TEST_F(MigrationTest, ExistingStatisticsAreDropped) {
  server.makeDatabase(database);
  install("SELECT 1;");
  for (const char* later : {"002-neighbours.sql", "003-given-again.sql", "004-more.sql"})
    std::filesystem::remove(directory / later);
  EXPECT_EQ(setUp(), "");
  PostgresHub older(server.addAccount(user + "_older", database), computer);
  answer(
      "INSERT INTO corvane_hub.records SELECT id, gen_random_uuid(), false, NULL, 0, 'A', 'http://a/', false,"
      " false, false, 0, now() FROM corvane_hub.accounts");
  answer("ANALYZE");
  EXPECT_NE(answer(kTellingStatistics), "0");
  server.setUpHub(database);
  EXPECT_EQ(answer(kTellingStatistics), "0");
  answer("ANALYZE");
  EXPECT_EQ(answer(kTellingStatistics), "0");
  EXPECT_EQ(failureOf([&] { give(older, {bookmark("B", "http://b/")}); }), "");
}

TEST_F(SetupTest, ABackupInANewDatabaseServesOn) {
  const HubRecord a = bookmark("A", "http://a/"), b = bookmark("B", "http://b/");
  give({a});
  const HubState before = hub.remoteChanges({}).now;
  const std::string dump = platform.directory / "dump";
  server.run({server.programs() + "/pg_dump", "--file=" + dump, server.administratorUrl()});
  give({b});
  const HubState after = hub.remoteChanges({}).now;

  server.makeDatabase("restored");
  server.run({server.programs() + "/psql", "-X", "-q", "-v", "ON_ERROR_STOP=1", "-f", dump,
              server.administratorUrl("restored")});
  server.setUpHub("restored");
  server.administer("ANALYZE", "restored");
  EXPECT_EQ(server.administer(kTellingStatistics, "restored"), "0");
  std::string elsewhere = url;
  PostgresHub restored(elsewhere.replace(elsewhere.rfind("/hub"), 4, "/restored"), computer);
  EXPECT_TRUE(restored.remoteChanges({before}).common);
  const RemoteChanges remote = restored.remoteChanges({after});
  EXPECT_FALSE(remote.common);
  EXPECT_EQ(text(remote.records), text({a}));
  give(restored, {a, b});
  EXPECT_EQ(text(restored.remoteChanges({}).records), text({a, b}));
  EXPECT_THROW(runSql(elsewhere, "CREATE TEMPORARY TABLE mine(a int)"), PostgresError)
      << "the database is closed too";
}

TEST_F(SetupTest, AnOrdinaryUserMayNotSetUp) {
  const std::string script = CORVANE_SCRIPTS "/hub-setup";
  EXPECT_THAT(messageOf([&] { server.run({script, url}); }), HasSubstr("this needs a superuser"));
}

TEST_F(SetupTest, AChangedPasswordReplacesTheOldOne) {
  const std::string printed = server.hubAccount("password", user);
  EXPECT_THAT(failureOf([&] { PostgresHub(url, computer).remoteChanges({}); }),
              HasSubstr("the server refused the user"));
  const std::string fresh = server.url(user, printed.substr(0, printed.find('\n')));
  EXPECT_EQ(failureOf([&] { PostgresHub(fresh, computer).remoteChanges({}); }), "");
}

// A session of the account's that has begun a push and keeps it open.
class OpenSessionTest : public SetupTest {
 protected:
  OpenSessionTest() {
    while (number("SELECT count(*) FROM pg_stat_activity WHERE wait_event = 'PgSleep'") == 0)
      std::this_thread::yield();
  }
  ~OpenSessionTest() override { _session.join(); }

  std::int64_t sessions() {
    return number("SELECT count(*) FROM pg_stat_activity WHERE usename = '" + user + "'");
  }
  // What the session was told at its end; empty when it came to its own.
  std::string end() {
    _session.join();
    _session = std::thread([] {});
    return _end;
  }

 private:
  std::string _end;
  std::thread _session{[this] {
    try {
      runSql(url,
             "BEGIN; SELECT corvane_hub.begin_push(uid, revision, mark, gen_random_uuid(), "
             "gen_random_uuid()) FROM corvane_hub.accounts; SELECT pg_sleep(15)");
    } catch (const PostgresError& error) {
      _end = error.what();
    }
  }};
};

constexpr const char* kEnded = "terminating connection due to administrator command";

TEST_F(OpenSessionTest, AnOpenSessionEndsWithItsPassword) {
  server.hubAccount("password", user);
  EXPECT_EQ(sessions(), 0) << "the computers' connections too";
  EXPECT_THAT(end(), HasSubstr(kEnded));
}

TEST_F(OpenSessionTest, AnOpenSessionEndsWithItsAccount) {
  server.hubAccount("remove", user);
  EXPECT_EQ(sessions(), 0);
  EXPECT_THAT(end(), HasSubstr(kEnded));
}

TEST_F(SetupTest, GrantsBetweenAccountsDoNotPreventTheirRemoval) {
  const std::string other = user + "_other";
  runSql(server.addAccount(other), "ALTER DEFAULT PRIVILEGES GRANT SELECT ON TABLES TO " + user);
  EXPECT_EQ(messageOf([&] { server.hubAccount("remove", user); }), "");
  EXPECT_EQ(messageOf([&] { server.hubAccount("remove", other); }), "");
}

TEST_F(SetupTest, MissingAndExistingAccountsAreNamed) {
  EXPECT_THAT(messageOf([&] { server.hubAccount("add", user); }),
              AllOf(HasSubstr("\"" + user + "\" already exists"), Not(HasSubstr("PASSWORD"))))
      << "the password that it would have had is in the statement";
  EXPECT_THAT(messageOf([&] { server.hubAccount("remove", "no_such"); }),
              HasSubstr("there is no account no_such"));
  EXPECT_THAT(messageOf([&] { server.hubAccount("password", "administrator"); }),
              HasSubstr("there is no account administrator"))
      << "only accounts get passwords here";
  EXPECT_THAT(messageOf([&] { server.hubAccount("remove", "administrator"); }),
              HasSubstr("there is no account"));
}

TEST_F(SetupTest, NamesAreNotRunAsStatements) {
  const std::string name = "o'hara\"; DROP SCHEMA corvane_hub CASCADE; --";
  server.hubAccount("add", name);
  EXPECT_EQ(
      number("SELECT count(*) FROM corvane_hub.accounts WHERE role = 'o''hara\"; DROP SCHEMA corvane_hub "
             "CASCADE; --'"),
      1);
  server.hubAccount("remove", name);
  EXPECT_EQ(hub.remoteChanges({}).now.revision, 0);
}

TEST_F(SetupTest, PasswordsStayOutOfTheServersLog) {
  for (const std::string on : {"ALTER SYSTEM SET log_statement = 'all'", "SELECT pg_reload_conf()"})
    administer(on);
  while (server.administer("SHOW log_statement") != "all") std::this_thread::yield();
  const std::string printed = server.hubAccount("password", user);
  const std::string password = printed.substr(0, printed.find('\n'));
  EXPECT_THAT(server.log(), HasSubstr("SHOW log_statement")) << "statements do stand there";
  EXPECT_THAT(server.log(), Not(HasSubstr(password)));
  administer("ALTER SYSTEM RESET log_statement");
  administer("SELECT pg_reload_conf()");
}

// pgbouncer, which hands one connection to the server from transaction to transaction.
class Pooler {
 public:
  Pooler(const PostgresServer& server, const std::string& directory, const std::string& user,
         const std::string& password)
      : _port(freePort()) {
    const std::string file = directory + "/pooler.ini";
    std::ofstream(directory + "/users") << '"' << user << "\" \"" << password << "\"\n";
    std::ofstream(file) << "[databases]\nhub = host=127.0.0.1 port=" << server.port()
                        << "\n[pgbouncer]\nlisten_addr = 127.0.0.1\nlisten_port = " << _port
                        << "\nunix_socket_dir =\nauth_type = scram-sha-256\nauth_file = " << directory
                        << "/users\npool_mode = transaction\ndefault_pool_size = 1\nlogfile = " << directory
                        << "/pooler.log\n"
                        << (::geteuid() == 0 ? "user = postgres\n" : "");
    EXPECT_EQ(::chmod(directory.c_str(), 0777), 0);
    for (const std::string& each : {directory + "/users", file}) EXPECT_EQ(::chmod(each.c_str(), 0644), 0);
    _process = ::fork();
    if (_process == 0) {
      ::execl("/usr/sbin/pgbouncer", "pgbouncer", "-q", file.c_str(), nullptr);
      ::_exit(127);
    }
  }
  ~Pooler() {
    ::kill(_process, SIGTERM);
    EXPECT_EQ(::waitpid(_process, nullptr, 0), _process);
  }
  int port() const { return _port; }

 private:
  int _port;
  pid_t _process;
};

TEST_F(SetupTest, APoolerMayShareTheConnectionBetweenTransactions) {
  const std::string password = url.substr(url.find(user + ":") + user.size() + 1,
                                          url.find('@') - url.find(user + ":") - user.size() - 1);
  const Pooler pooler(server, platform.directory.path(), user, password);
  const std::string pooled =
      "postgresql://" + user + ":" + password + "@127.0.0.1:" + std::to_string(pooler.port()) + "/hub";
  for (int i = 0; i < 3000 && !messageOf([&] { runSql(pooled, "SELECT 1"); }).empty(); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));

  std::vector<std::unique_ptr<PostgresHub>> hubs;
  for (int i = 0; i < 4; ++i) hubs.push_back(std::make_unique<PostgresHub>(pooled, newUuidString()));
  std::vector<HubRecord> given;
  for (int round = 0; round < 5; ++round) {
    for (const auto& one : hubs) {
      one->setEnabled(kHubDataClass, true);
      for (int i = 0; i < 300; ++i) given.push_back(bookmark("pooled", "http://a/"));
      give(*one, given);
      ASSERT_EQ(text(one->remoteChanges({}).records), text(given));
    }
  }
  EXPECT_EQ(runSql(pooled, "SHOW statement_timeout"), "0") << "nothing outlives a transaction";
  EXPECT_EQ(number("SELECT count(*) FROM pg_stat_activity WHERE usename = '" + user + "'"), 2)
      << "the pooler's one connection, and that of this test's own hub";
}

}  // namespace

TEST(PostgresServerTest, TheServerLeavesNothingBehindWhenTheTestIsKilled) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    PostgresServer server;
    const std::string directory = server.directory();
    if (::write(ends[1], directory.data(), directory.size()) < 0) ::_exit(1);
    ::raise(SIGKILL);
  }
  ::close(ends[1]);
  char buffer[4096];
  const ssize_t size = ::read(ends[0], buffer, sizeof buffer);
  ::close(ends[0]);
  ASSERT_GT(size, 0);
  const std::string directory(buffer, static_cast<std::size_t>(size));
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  for (int i = 0; i < 6000 && ::access(directory.c_str(), F_OK) == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_NE(::access(directory.c_str(), F_OK), 0) << directory;
}

}  // namespace corvane::pelto
