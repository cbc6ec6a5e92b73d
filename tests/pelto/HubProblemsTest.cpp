#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "tests/pelto/CuttingProxy.h"
#include "tests/pelto/HubFixture.h"

// Servers that are not there, refuse, keep silent, prove the wrong thing or were set up otherwise: each
// failure tells what it was and what to do, in time, and never a password.

namespace corvane::pelto {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

// A port that takes connections and never says a word.
class SilentPort {
 public:
  SilentPort() : _socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(_socket, reinterpret_cast<const sockaddr*>(&address), size), 0);
    EXPECT_EQ(::listen(_socket, 16), 0);
    EXPECT_EQ(::getsockname(_socket, reinterpret_cast<sockaddr*>(&address), &size), 0);
    _number = std::to_string(ntohs(address.sin_port));
  }
  ~SilentPort() { ::close(_socket); }
  const std::string& number() const { return _number; }

 private:
  int _socket;
  std::string _number;
};

class ProblemTest : public HubTest {
 protected:
  // Every call fails in the same way; the reason.
  std::string failureWith(const std::string& address, HubTimeouts timeouts = {}) {
    PostgresHub failing(address, computer, timeouts);
    const std::string reason = failureOf([&] { failing.remoteChanges({}); });
    EXPECT_NE(failureOf([&] { failing.push({{newUuidString(), 0, {}}, newUuidString(), {}}); }), "");
    EXPECT_NE(failureOf([&] { failing.hasPush(newUuidString()); }), "");
    EXPECT_NE(failureOf([&] { failing.isEnabled(kHubDataClass); }), "");
    EXPECT_NE(failureOf([&] { failing.setEnabled(kHubDataClass, true); }), "");
    EXPECT_THAT(reason, Not(HasSubstr(password))) << "a secret";
    EXPECT_THAT(reason, HasSubstr("the online service ("));
    return reason;
  }
  std::string replaced(std::string text, const std::string& what, const std::string& with) const {
    const std::size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return text.replace(at, what.size(), with);
  }
  std::string port() const { return ":" + std::to_string(server.port()); }

  const std::string password = url.substr(url.find(user + ":") + user.size() + 1,
                                          url.find('@') - url.find(user + ":") - user.size() - 1);
};

TEST_F(ProblemTest, AWrongPasswordIsRefusedAndNeverShown) {
  EXPECT_THAT(failureWith(replaced(url, password, "wrong-password")),
              AllOf(HasSubstr("Can't connect at the online service (127.0.0.1, port "),
                    HasSubstr("database hub, user " + user + ")"),
                    HasSubstr("the server refused the user: password authentication failed"),
                    HasSubstr("set the account again"), Not(HasSubstr("wrong-password"))));
}

TEST_F(ProblemTest, AMissingPasswordIsNamed) {
  EXPECT_THAT(failureWith(replaced(url, ":" + password, "")), HasSubstr("the server wants a password"));
}

TEST_F(ProblemTest, AnUnknownUserIsRefused) {
  EXPECT_THAT(failureWith(replaced(url, user + ":", "nobody:")), HasSubstr("the server refused the user"));
}

TEST_F(ProblemTest, AMissingDatabaseIsNamed) {
  EXPECT_THAT(failureWith(replaced(url, "/hub", "/nowhere")),
              AllOf(HasSubstr("there is no such database"), HasSubstr("docs/hub.md")));
}

TEST_F(ProblemTest, ADatabaseWithoutTheServiceIsNamed) {
  server.makeDatabase("bare");
  EXPECT_THAT(failureWith(replaced(url, "/hub", "/bare")),
              AllOf(HasSubstr("its database holds no bookmarks service"), HasSubstr("docs/hub.md")));
}

TEST_F(ProblemTest, VersionsThatDoNotFitAreNamedAndOthersServe) {
  const auto set = [&](int number, int oldestClient) {
    administer("UPDATE corvane_hub.version SET number = " + std::to_string(number) +
               ", oldest_client = " + std::to_string(oldestClient));
  };
  set(kHubVersion - 1, 1);
  EXPECT_THAT(failureWith(url),
              AllOf(HasSubstr("it is of version " + std::to_string(kHubVersion - 1) +
                              ", and this program needs version " + std::to_string(kHubVersion) + '.'),
                    HasSubstr("hub-setup")));
  set(99, kHubVersion + 1);
  EXPECT_THAT(failureWith(url),
              AllOf(HasSubstr("it is of version 99"), HasSubstr("Install a newer version")));
  set(99, kHubVersion);
  EXPECT_EQ(failureOf([&] { PostgresHub(url, computer).remoteChanges({}); }), "")
      << "newer, but it still serves this one";
  administer("DELETE FROM corvane_hub.version");
  EXPECT_THAT(failureWith(url), HasSubstr("not set up completely"));
  administer("INSERT INTO corvane_hub.version VALUES(" + std::to_string(kHubVersion) + ", 1)");
  EXPECT_EQ(failureOf([&] { PostgresHub(url, computer).remoteChanges({}); }), "");
}

TEST_F(ProblemTest, AServerThatDoesNotListenIsNamed) {
  std::string free;
  { free = SilentPort().number(); }
  EXPECT_THAT(failureWith(replaced(url, port(), ":" + free)),
              HasSubstr("it can't be reached: Connection refused"));
  EXPECT_THAT(failureWith("postgresql:///hub?host=" + server.directory() + "/nowhere"),
              AllOf(HasSubstr("it can't be reached"), HasSubstr(server.directory() + "/nowhere")));
}

TEST_F(ProblemTest, AnUnknownHostIsNamed) {
  EXPECT_THAT(failureWith("postgresql://a:" + password + "@no_such..host/hub"),
              HasSubstr("the server no_such..host can't be found: "));
}

TEST_F(ProblemTest, AServerThatNeverAnswersIsGivenUpInTime) {
  const SilentPort silent;
  const auto before = std::chrono::steady_clock::now();
  EXPECT_THAT(failureWith(replaced(url, port(), ":" + silent.number()), {0.2, 15.0}),
              HasSubstr("it did not answer in time"));
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(5 * 200))
      << "each of five calls";
}

TEST_F(ProblemTest, ASilentServerLeavesTimeForTheNextOne) {
  const SilentPort silent;
  const std::string two =
      replaced(url, "@127.0.0.1" + port(), "@127.0.0.1:" + silent.number() + ",127.0.0.1" + port());
  EXPECT_EQ(failureOf([&] { PostgresHub(two, computer, {4.0, 15.0}).remoteChanges({}); }), "");
}

TEST_F(ProblemTest, EachAddressOfAHostIsTried) {
  // "localhost" stands for addresses of both families; the server listens on one of them.
  EXPECT_EQ(
      failureOf([&] { PostgresHub(replaced(url, "127.0.0.1", "localhost"), computer).remoteChanges({}); }),
      "");
}

TEST_F(ProblemTest, ASocketOfThisComputerServes) {
  const std::string socket = "postgresql://" + user + ":" + password + "@" +
                             "/hub?host=" + server.directory() + "&port=" + std::to_string(server.port());
  EXPECT_EQ(failureOf([&] { PostgresHub(socket, computer).remoteChanges({}); }), "");
}

TEST_F(ProblemTest, AServerThatFallsSilentAtAnyMessageIsGivenUpInTime) {
  CuttingProxy proxy(server.port());
  PostgresHub patient(url, computer);
  for (const int message : {2, 4, 9, 10, 15, 20, 21}) {
    SCOPED_TRACE(message);
    const HubPush push{patient.remoteChanges({}).now, newUuidString(), {bookmark("A", "http://a/")}};
    PostgresHub hasty(proxy.through(url), computer, {0.3, 0.3});
    proxy.fallSilentAt(message);
    EXPECT_THAT(failureOf([&] { hasty.push(push); }),
                ContainsRegex("it took longer than 0.3 seconds|it did not answer in time"));
    EXPECT_EQ(patient.remoteChanges({}).now, push.expected);
    proxy.cutAt(0);
  }
}

TEST_F(ProblemTest, ASlowLineCarriesMuchInSmallStatements) {
  CuttingProxy proxy(server.port());
  proxy.slowDownTo(2000);
  // The time for one statement is enough for a quarter of it all.
  PostgresHub slow(proxy.through(url), computer, {5.0, 4.0});
  std::vector<HubRecord> records;
  for (int i = 0; i < 4000; ++i) records.push_back(bookmark(std::string(250, 'n'), {}));
  EXPECT_EQ(failureOf([&] { give(slow, records); }), "");
  EXPECT_EQ(held(), text(records));
  std::string read;
  EXPECT_EQ(failureOf([&] { read = text(slow.remoteChanges({}).records); }), "");
  EXPECT_EQ(read, text(records));
}

TEST_F(ProblemTest, ABusyAccountIsGivenUpInTime) {
  std::thread other([this] {
    EXPECT_THROW(
        administer("BEGIN; SELECT FROM corvane_hub.accounts WHERE id = $ FOR UPDATE; SELECT pg_sleep(3600)"),
        PostgresError)
        << "it lasts until it is ended";
  });
  while (number("SELECT count(*) FROM pg_stat_activity WHERE wait_event = 'PgSleep'") == 0)
    std::this_thread::yield();
  PostgresHub hasty(url, computer, {5.0, 3.0});
  const HubState now = hub.remoteChanges({}).now;
  EXPECT_THAT(failureOf([&] {
                hasty.push({now, newUuidString(), {}});
              }),
              HasSubstr("an earlier change of this account has not ended there"));
  EXPECT_EQ(failureOf([&] { hasty.remoteChanges({}); }), "") << "reading waits for nobody";
  administer("SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE wait_event = 'PgSleep'");
  other.join();
  EXPECT_TRUE(hasty.push({now, newUuidString(), {}}));
}

// A server whose transactions go wrong a number of times when they give changes.
class ConflictTest : public ProblemTest {
 protected:
  ConflictTest() {
    server.administer(
        "CREATE SEQUENCE public.conflicts;"
        "CREATE FUNCTION public.conflict() RETURNS trigger LANGUAGE plpgsql SECURITY DEFINER AS $$ BEGIN"
        "  IF nextval('public.conflicts') <= TG_ARGV[1]::int THEN"
        "    RAISE EXCEPTION 'it is in the way' USING ERRCODE = TG_ARGV[0];"
        "  END IF; RETURN NEW; END $$");
  }
  ~ConflictTest() override {
    server.administer("DROP FUNCTION public.conflict CASCADE; DROP SEQUENCE public.conflicts");
  }

  // What becomes of a push in whose way `times` others are.
  std::string pushWithConflicts(const std::string& state, int times) {
    server.administer(
        "ALTER SEQUENCE public.conflicts RESTART; DROP TRIGGER IF EXISTS conflict ON corvane_hub.accounts;"
        "CREATE TRIGGER conflict BEFORE UPDATE ON corvane_hub.accounts FOR EACH ROW"
        " EXECUTE FUNCTION public.conflict('" +
        state + "', " + std::to_string(times) + ")");
    return failureOf([&] { give({bookmark(state, {})}); });
  }
};

TEST_F(ConflictTest, TransactionsThatConflictAreRunAgain) {
  for (const char* state : {"40001", "40P01"}) {
    EXPECT_EQ(pushWithConflicts(state, 3), "") << state;
    EXPECT_THAT(held(), HasSubstr(state));
  }
}

TEST_F(ConflictTest, ConflictingTransactionsAreGivenUpInTheEnd) {
  for (const char* state : {"40001", "40P01"})
    EXPECT_THAT(pushWithConflicts(state, 1000), HasSubstr("it is in the way (" + std::string(state) + ")"));
  EXPECT_EQ(held(), "");
}

TEST_F(ProblemTest, AStandbyThatDoesNotFollowIsNotCalledAnotherComputer) {
  const auto awaitStandby = [&](const std::string& name) {
    administer("ALTER SYSTEM SET synchronous_standby_names = '" + name + "'");
    administer("SELECT pg_reload_conf()");
    while (server.administer("SHOW synchronous_standby_names") != name) std::this_thread::yield();
  };
  const HubState now = hub.remoteChanges({}).now;
  awaitStandby("nobody");
  std::thread other([&] {
    EXPECT_EQ(failureOf([&] { PostgresHub(url, computer).push({now, newUuidString(), {}}); }), "");
  });
  while (number("SELECT count(*) FROM pg_stat_activity WHERE wait_event = 'SyncRep' AND usename = '" + user +
                "'") == 0)
    std::this_thread::yield();
  PostgresHub hasty(url, computer, {5.0, 3.0});
  EXPECT_THAT(
      failureOf([&] {
        hasty.push({now, newUuidString(), {}});
      }),
      AllOf(HasSubstr("an earlier change of this account has not ended there"), Not(HasSubstr("computer"))));
  awaitStandby("");
  other.join();
  EXPECT_EQ(hub.remoteChanges({}).now.revision, now.revision + 1) << "it stands";
}

TEST_F(ProblemTest, AComputerThatFallsSilentReleasesTheAccount) {
  CuttingProxy proxy(server.port());
  const HubState now = hub.remoteChanges({}).now;
  std::thread other([&] {
    PostgresHub silent(proxy.through(url), "C0000000-0000-4000-8000-000000000002", {5.0, 2.0});
    HubPush push{
        {server.administer("SELECT upper(uid::text) FROM corvane_hub.accounts WHERE role = '" + user + "'"),
         0,
         {}},
        newUuidString(),
        {bookmark("A", "http://a/")}};
    // The push has begun when its records would be sent; the connection stays open all the while.
    proxy.fallSilentAt(16);
    EXPECT_NE(failureOf([&] { silent.push(push); }), "");
  });
  while (proxy.messages() < 16) std::this_thread::yield();
  bool isTaken = false;
  EXPECT_EQ(failureOf([&] { isTaken = static_cast<bool>(hub.push({now, newUuidString(), {}})); }), "");
  EXPECT_TRUE(isTaken) << "the server ended the transaction of who said no more";
  proxy.cutAt(0);
  other.join();
}

TEST_F(ProblemTest, TheEnvironmentIsIgnored) {
  const SilentPort silent;
  const std::pair<const char*, std::string> variables[] = {
      {"PGHOSTADDR", "192.0.2.1"},        {"PGSERVICE", "nowhere"},    {"PGSSLMODE", "require"},
      {"PGOPTIONS", "-c nonsense=1"},     {"PGPORT", silent.number()}, {"PGREQUIRESSL", "1"},
      {"PGPASSFILE", "/nowhere"},         {"PGUSER", "nobody"},        {"PGCHANNELBINDING", "require"},
      {"PGTARGETSESSIONATTRS", "standby"}};
  for (const auto& [name, value] : variables) {
    ::setenv(name, value.c_str(), 1);
    EXPECT_EQ(failureOf([&] { PostgresHub(url, computer).remoteChanges({}); }), "") << name;
    EXPECT_EQ(::getenv(name), nullptr);
  }
}

TEST_F(ProblemTest, PasswordsComeFromTheAccountAlone) {
  const std::string file = platform.directory / "pgpass";
  std::ofstream(file) << "*:*:*:*:" << password << '\n';
  ASSERT_EQ(::chmod(file.c_str(), 0600), 0);
  ::setenv("PGPASSFILE", file.c_str(), 1);
  EXPECT_THAT(failureWith(replaced(url, ":" + password, "")), HasSubstr("the server wants a password"));
}

TEST_F(ProblemTest, AnAnswerWhoseRowsNeverEndIsGivenUp) {
  give({bookmark("A", "http://a/")});
  CuttingProxy proxy(server.port());
  PostgresHub flooded(proxy.through(url), computer, {5.0, 4.0});
  flooded.remoteChanges({});
  proxy.cutAt(0);
  flooded.remoteChanges({});
  const int messages = proxy.messages();
  int endless = 0;
  for (int message = 1; message <= messages; ++message) {
    SCOPED_TRACE(message);
    proxy.cutAt(0);
    EXPECT_EQ(failureOf([&] { flooded.remoteChanges({}); }), "");
    proxy.cutAt(message, CuttingProxy::Moment::endless);
    const std::string reason = failureOf([&] { flooded.remoteChanges({}); });
    if (reason.find("it gives more than was asked for") != std::string::npos) ++endless;
  }
  EXPECT_EQ(endless, 2) << "that of the account, and that of the records";
}

// A service that has always one more page of records, and makes what it likes of the account's limits.
class EndlessTest : public ProblemTest {
 protected:
  static void SetUpTestSuite() {
    postgresServer().makeDatabase("endless");
    postgresServer().setUpHub("endless");
    postgresServer().administer(
        "DROP TABLE corvane_hub.records;"
        "CREATE VIEW corvane_hub.records AS SELECT a.id AS account,"
        "  (extract(epoch FROM clock_timestamp()) * 1000000)::bigint * 1000 + n AS revision,"
        "  gen_random_uuid() AS id, false AS folder, NULL::uuid AS parent, n AS position,"
        "  'title'::bytea AS name, 'http://a/'::bytea AS url, false AS tab_group, false AS special,"
        "  false AS deleted FROM corvane_hub.accounts a, generate_series(1, 6000) AS n;"
        "GRANT SELECT ON corvane_hub.records TO corvane_account",
        "endless");
  }

  EndlessTest() { PostgresHub(address, computer).setEnabled(kHubDataClass, true); }

  std::string failureWithLimits(const std::string& records, const std::string& bytes,
                                HubTimeouts timeouts = {}) {
    server.administer(
        "UPDATE corvane_hub.accounts SET revision = 1, mark = gen_random_uuid(), record_limit = " + records +
            ", byte_limit = " + bytes + " WHERE role = '" + user + "_endless'",
        "endless");
    return failureOf([&] { PostgresHub(address, computer, timeouts).remoteChanges({}); });
  }

  const std::string address = server.addAccount(user + "_endless", "endless");
};

TEST_F(EndlessTest, NoMoreIsReadThanTheAccountMayHold) {
  const std::string most = "1000000000000000";
  for (const auto& [records, bytes] : {std::pair<std::string, std::string>{"3000", most}, {most, "20000"}})
    EXPECT_THAT(failureWithLimits(records, bytes), HasSubstr("it gives more than the account may hold"));
}

TEST_F(EndlessTest, AnExchangeEndsInTimeEvenIfEachPageDoes) {
  const std::string most = "1000000000000000";
  EXPECT_THAT(failureWithLimits(most, most, {5.0, 15.0, 1.0}),
              HasSubstr("the whole exchange took longer than 1 second"));
}

class EncryptedTest : public ProblemTest {
 protected:
  ~EncryptedTest() override { switchEncryption("off"); }

  void switchEncryption(const std::string& to) {
    for (const std::string& statement :
         {"ALTER SYSTEM SET ssl = " + to, std::string("SELECT pg_reload_conf()")})
      administer(statement);
    while (server.administer("SHOW ssl") != to) std::this_thread::yield();
  }
  // A key and a certificate for "hub.example.org" that nobody else has signed; the server uses them.
  void encrypt() {
    const std::string key = server.directory() + "/data/server.key";
    const std::string command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj "
        "/CN=hub.example.org"
        " -addext subjectAltName=DNS:hub.example.org -keyout '" +
        key + "' -out '" + certificate + "' 2>/dev/null && chmod 600 '" + key + "' && chown --reference='" +
        server.directory() + "/data' '" + key + "' '" + certificate + "'";
    ASSERT_EQ(std::system(command.c_str()), 0);
    switchEncryption("on");
  }
  std::string encrypted(const std::string& host, const std::string& authority) const {
    return "postgresql://" + user + ":" + password + "@" + host + port() +
           "/hub?hostaddr=127.0.0.1&sslmode=verify-full&sslrootcert=" + authority;
  }
  const std::string certificate = server.directory() + "/data/server.crt";
};

TEST_F(EncryptedTest, ClientCertificatesComeFromTheAccountAlone) {
  encrypt();
  const std::string home = platform.directory.path();
  std::filesystem::create_directory(home + "/.postgresql");
  std::filesystem::copy(certificate, home + "/.postgresql/postgresql.crt");
  const std::string before = ::getenv("HOME") ? ::getenv("HOME") : "";
  ::setenv("HOME", home.c_str(), 1);
  const std::string address = encrypted("hub.example.org", certificate);
  EXPECT_EQ(failureOf([&] { PostgresHub(address, computer).remoteChanges({}); }), "")
      << "a certificate without a key would be an error";
  EXPECT_THAT(failureOf([&] { PostgresHub(address + "&sslcert=" + certificate, computer); }),
              HasSubstr("Give both sslcert and sslkey."));
  EXPECT_EQ(failureOf([&] {
              PostgresHub(
                  address + "&sslcert=" + certificate + "&sslkey=" + server.directory() + "/data/server.key",
                  computer)
                  .remoteChanges({});
            }),
            "")
      << "what the account names is used";
  ::setenv("HOME", before.c_str(), 1);
}

TEST_F(EncryptedTest, TheServerMustProveItsName) {
  EXPECT_THAT(failureWith(encrypted("hub.example.org", certificate)),
              AllOf(HasSubstr("TLS did not succeed"), HasSubstr("Nothing was sent")))
      << "a server without TLS";
  encrypt();
  EXPECT_EQ(
      failureOf([&] { PostgresHub(encrypted("hub.example.org", certificate), computer).remoteChanges({}); }),
      "");
  EXPECT_THAT(failureWith(encrypted("other.example.org", certificate)),
              AllOf(HasSubstr("TLS did not succeed"), HasSubstr("does not match host name")));
  EXPECT_THAT(failureWith(encrypted("hub.example.org", "/etc/ssl/certs/ca-certificates.crt")),
              AllOf(HasSubstr("TLS did not succeed"), ContainsRegex("certificate")));
  EXPECT_THAT(failureWith(encrypted("hub.example.org", "/nowhere.crt")), HasSubstr("TLS did not succeed"));
}

}  // namespace
}  // namespace corvane::pelto
