#include <functional>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "tests/pelto/HubFixture.h"

// One account's credentials, whatever is tried with them, see and touch that account alone, and within it
// nothing but what the functions allow.

namespace corvane::pelto {
namespace {

// SQLSTATE of what the statements end with; empty when the server takes them.
std::string stateOf(const std::string& url, const std::string& statements) {
  try {
    runSql(url, statements);
    return {};
  } catch (const PostgresError& error) {
    return error.state();
  }
}

constexpr const char* kNotPermitted = "42501";

class IsolationTest : public HubTest {
 protected:
  IsolationTest() { PostgresHub(other, computer).setEnabled(kHubDataClass, true); }
  ~IsolationTest() override { EXPECT_EQ(everything(), before) << "somebody else's rows changed"; }

  // All rows of the account that somebody else tries to reach.
  std::string everything() {
    std::string rows;
    for (const std::string table :
         {"accounts", "records", "pushes", "given_again", "computers", "settings"}) {
      rows += server.administer("SELECT string_agg(t::text, E'\\n' ORDER BY t::text) FROM corvane_hub." +
                                table + " AS t WHERE " + (table == "accounts" ? "id" : "account") +
                                " = (SELECT id FROM corvane_hub.accounts WHERE role = '" + user + "')") +
              "\n";
    }
    return rows;
  }
  bool giveAgain() { return bool(hub.push({hub.remoteChanges({}).now, newUuidString(), {}, {lost}})); }
  std::string accountNumber() {
    return server.administer("SELECT id FROM corvane_hub.accounts WHERE role = '" + user + "'");
  }

  const HubRecord record = bookmark("Private", "http://private/");
  const std::string other = server.addAccount();
  const HubState lost{hub.remoteChanges({}).now.account, 1, newUuidString()};
  const std::string before = (give({record}), giveAgain(), everything());
};

TEST_F(IsolationTest, AnAccountSeesOnlyItsOwnRows) {
  for (const std::string table : {"accounts", "records", "pushes", "given_again", "computers", "settings"}) {
    SCOPED_TRACE(table);
    const std::string key = table == "accounts" ? "id" : "account";
    EXPECT_EQ(runSql(other,
                     "SELECT count(*) FROM corvane_hub." + table + " WHERE " + key + " = " + accountNumber()),
              "0");
    EXPECT_EQ(runSql(other, "SELECT count(DISTINCT " + key + ") <= 1 FROM corvane_hub." + table), "t");
    EXPECT_NE(runSql(url, "SELECT count(*) FROM corvane_hub." + table), "0") << "the owner does see them";
  }
  EXPECT_EQ(runSql(other, "SELECT count(*) FROM corvane_hub.accounts"), "1");
}

TEST_F(IsolationTest, AnAccountWritesToNoTable) {
  const std::string number = accountNumber();
  for (const std::string& who : {other, url}) {
    for (const std::string table :
         {"accounts", "records", "pushes", "given_again", "computers", "settings", "version"}) {
      SCOPED_TRACE(table);
      const std::string name = "corvane_hub." + table;
      EXPECT_EQ(stateOf(who, "INSERT INTO " + name + " DEFAULT VALUES"), kNotPermitted);
      EXPECT_EQ(stateOf(who, "DELETE FROM " + name), kNotPermitted);
      EXPECT_EQ(stateOf(who, "TRUNCATE " + name), kNotPermitted);
      EXPECT_EQ(stateOf(who, "SELECT * FROM " + name + " FOR UPDATE"), kNotPermitted);
      EXPECT_EQ(stateOf(who, "BEGIN; LOCK " + name + " IN ACCESS EXCLUSIVE MODE"), kNotPermitted);
      EXPECT_EQ(stateOf(who, "ALTER TABLE " + name + " DISABLE ROW LEVEL SECURITY"), kNotPermitted);
      EXPECT_EQ(stateOf(who, "DROP TABLE " + name), kNotPermitted);
    }
    EXPECT_EQ(stateOf(who, "UPDATE corvane_hub.accounts SET revision = 0, mark = NULL"), kNotPermitted);
    EXPECT_EQ(stateOf(who, "UPDATE corvane_hub.accounts SET record_limit = 2000000"), kNotPermitted);
    EXPECT_EQ(stateOf(who, "UPDATE corvane_hub.records SET name = NULL"), kNotPermitted);
    EXPECT_EQ(stateOf(who, "UPDATE corvane_hub.settings SET enabled = false"), kNotPermitted);
    EXPECT_EQ(stateOf(who, "COPY corvane_hub.records FROM STDIN"), kNotPermitted);
    EXPECT_EQ(stateOf(who, "DROP POLICY own ON corvane_hub.records"), kNotPermitted);
    EXPECT_EQ(stateOf(who, "CREATE POLICY all_rows ON corvane_hub.records USING (true)"), kNotPermitted);
  }
}

TEST_F(IsolationTest, PartitionsAreAsClosedAsTheirTables) {
  for (int part = 0; part < 64; ++part) {
    EXPECT_EQ(stateOf(other, "SELECT * FROM corvane_hub.records_" + std::to_string(part)), kNotPermitted);
  }
  for (int part = 0; part < 16; ++part) {
    EXPECT_EQ(stateOf(other, "SELECT * FROM corvane_hub.pushes_" + std::to_string(part)), kNotPermitted);
  }
}

TEST_F(IsolationTest, FunctionsActOnlyForTheCaller) {
  const HubState now = hub.remoteChanges({}).now;
  PostgresHub stranger(other, computer);
  EXPECT_FALSE(stranger.push({now, newUuidString(), {tombstone(record)}})) << "another account's state";
  EXPECT_FALSE(stranger.hasPush(now.pushId));
  EXPECT_FALSE(stranger.remoteChanges({now}).common);
  EXPECT_FALSE(stranger.hasPush(lost.pushId));
  EXPECT_FALSE(stranger.remoteChanges({lost}).givenAgain);

  give(stranger, {tombstone(record), bookmark("Own", "http://own/")});
  stranger.setEnabled(kHubDataClass, false);
  EXPECT_EQ(held(), text({record})) << "one id in two accounts is two records";
}

TEST_F(IsolationTest, RecordsAreWrittenOnlyWithinAPush) {
  const std::string put = "SELECT corvane_hub.put_records(ARRAY['" + record.id.toString() +
                          "'::uuid], ARRAY[false], ARRAY[NULL::uuid], ARRAY[0], ARRAY[NULL::bytea], "
                          "ARRAY[NULL::bytea], ARRAY[false], "
                          "ARRAY[false], ARRAY[true])";
  constexpr const char* kNoPush = "55000";
  for (const std::string& who : {url, other}) {
    EXPECT_EQ(stateOf(who, put), kNoPush);
    EXPECT_EQ(stateOf(who, "BEGIN; " + put), kNoPush);
  }
}

TEST_F(IsolationTest, StatesAreGivenAgainOnlyWithinAPush) {
  const std::string give =
      "SELECT corvane_hub.give_again(ARRAY['" + newUuidString() + "'::uuid], ARRAY[1::bigint])";
  for (const std::string& who : {url, other}) {
    EXPECT_EQ(stateOf(who, give), "55000");
    EXPECT_EQ(stateOf(who, "BEGIN; " + give), "55000");
  }
}

TEST_F(IsolationTest, TheAdministratorsFunctionsCannotBeCalled) {
  const std::string calls[] = {
      "corvane_hub.forget_old(" + accountNumber() + ")",       "corvane_hub.add_account('another', 'secret')",
      "corvane_hub.change_password('" + user + "', 'secret')", "corvane_hub.remove_account('" + user + "')",
      "corvane_hub.readable_records('" + user + "')",          "corvane_hub.readable('abc'::bytea)",
  };
  for (const std::string& call : calls) EXPECT_EQ(stateOf(other, "SELECT " + call), kNotPermitted) << call;
}

TEST_F(IsolationTest, NoOtherRoleCanBeTaken) {
  const std::string statements[] = {
      "SET ROLE corvane_hub_owner",
      "SET ROLE administrator",
      "SET ROLE " + user,
      "SET SESSION AUTHORIZATION " + user,
      "GRANT corvane_hub_owner TO CURRENT_USER",
      "GRANT " + user + " TO CURRENT_USER",
      "ALTER ROLE " + user + " PASSWORD 'secret'",
      "ALTER ROLE CURRENT_USER BYPASSRLS",
      "ALTER ROLE CURRENT_USER CONNECTION LIMIT -1",
      "CREATE ROLE another",
      "DROP ROLE " + user,
      "SELECT * FROM pg_authid",
      "SELECT pg_read_file('postgresql.conf')",
      "COPY (SELECT 1) TO PROGRAM 'true'",
      "SELECT pg_terminate_backend(pid) FROM pg_stat_get_activity(NULL) WHERE pid <> pg_backend_pid()"
      " AND usesysid = (SELECT oid FROM pg_roles WHERE rolname = '" +
          user + "')",
  };
  hub.remoteChanges({});  // a connection of the owner's stands
  for (const std::string& statement : statements)
    EXPECT_EQ(stateOf(other, statement), kNotPermitted) << statement;

  // The group's role is everybody's, and gives nothing more: policies go by who logged in.
  EXPECT_EQ(
      runSql(other, "SET ROLE corvane_account; SELECT count(*) FROM corvane_hub.records WHERE account = " +
                        accountNumber()),
      "0");
  EXPECT_EQ(stateOf(other, "SET row_security = off; SELECT * FROM corvane_hub.records"), kNotPermitted);
}

TEST_F(IsolationTest, NothingElseCanBeStored) {
  const std::string statements[] = {
      "CREATE TABLE corvane_hub.mine(a int)",
      "CREATE FUNCTION corvane_hub.mine() RETURNS int LANGUAGE sql AS 'SELECT 1'",
      "CREATE TABLE public.mine(a int)",
      "CREATE TEMPORARY TABLE mine(a int)",
      "CREATE SCHEMA mine",
      "CREATE DATABASE mine",
      "SELECT lo_create(0)",
      "SELECT lo_from_bytea(0, 'abc')",
      "SELECT lo_creat(-1)",
  };
  for (const std::string& statement : statements)
    EXPECT_EQ(stateOf(other, statement), kNotPermitted) << statement;
}

TEST_F(IsolationTest, NoProgramsCanBeRunAndTheServersNumbersAreHidden) {
  const std::string statements[] = {
      "DO 'BEGIN END'",
      "CREATE FUNCTION pg_temp.mine() RETURNS int LANGUAGE plpgsql AS 'BEGIN RETURN 1; END'",
      "SELECT pg_logical_emit_message(false, 'a', 'text')",
      "SELECT pg_logical_emit_message(true, 'a', '\\x00'::bytea)",
      "SELECT pg_current_xact_id()",
      "SELECT pg_current_xact_id_if_assigned()",
      "SELECT pg_current_snapshot()",
      "SELECT pg_xact_status('3')",
      "SELECT pg_visible_in_snapshot('3', '1:2:')",
      "SELECT pg_snapshot_xmax('1:2:')",
      "SELECT pg_xact_commit_timestamp('3')",
      "SELECT pg_last_committed_xact()",
      "SELECT pg_export_snapshot()",
      "SELECT txid_current()",
      "SELECT txid_current_if_assigned()",
      "SELECT txid_current_snapshot()",
      "SELECT txid_status(3)",
  };
  for (const std::string& statement : statements)
    EXPECT_EQ(stateOf(other, statement), kNotPermitted) << statement;
}

TEST_F(IsolationTest, AnAccountCannotMakeOthersWait) {
  const std::string statements[] = {
      "SELECT pg_advisory_lock(1)",
      "SELECT pg_advisory_lock(1, 2)",
      "SELECT pg_advisory_lock_shared(1)",
      "SELECT pg_advisory_xact_lock(1)",
      "SELECT pg_advisory_xact_lock_shared(1, 2)",
      "SELECT pg_try_advisory_lock(1)",
      "SELECT pg_try_advisory_lock_shared(1, 2)",
      "SELECT pg_try_advisory_xact_lock(1)",
      "BEGIN; LOCK pg_catalog.pg_authid IN ACCESS SHARE MODE",
      "BEGIN; LOCK pg_catalog.pg_class IN SHARE MODE",
  };
  for (const std::string& statement : statements)
    EXPECT_EQ(stateOf(other, statement), kNotPermitted) << statement;
}

TEST_F(IsolationTest, AnAccountTakesNoMoreThanItsShareOfTheServer) {
  EXPECT_EQ(runSql(other, "SHOW temp_file_limit"), "64MB");
  constexpr const char* kTooMuch = "53400";
  EXPECT_EQ(
      stateOf(other,
              "SELECT count(*) FROM (SELECT n FROM generate_series(1, 20000000) n ORDER BY 1 OFFSET 0) s"),
      kTooMuch);
  EXPECT_EQ(stateOf(other, "SET temp_file_limit = -1"), kNotPermitted);
  for (const std::string change : {"SET temp_file_limit = -1", "RESET temp_file_limit", "RESET ALL"})
    stateOf(other, "ALTER ROLE CURRENT_USER " + change);
  EXPECT_EQ(runSql(other, "SHOW temp_file_limit"), "64MB");
  EXPECT_EQ(runSql(other, "SELECT rolconnlimit FROM pg_roles WHERE rolname = CURRENT_USER"), "5");
}

TEST_F(IsolationTest, ThePlannersEstimatesRevealNothingOfOthers) {
  const std::string third = server.addAccount();
  PostgresHub hubOfThird(third, computer);
  hubOfThird.setEnabled(kHubDataClass, true);
  std::vector<HubRecord> records;
  for (int i = 0; i < 2000; ++i) records.push_back(bookmark("Secret", "http://secret/"));
  give(hubOfThird, records);
  server.administer("ANALYZE");
  const auto plan = [&](const std::string& condition) {
    return runSql(other, "EXPLAIN SELECT FROM corvane_hub.records WHERE " + condition);
  };
  EXPECT_EQ(plan("name = 'Secret'"), plan("name = 'Nobody'"));
  EXPECT_EQ(plan("url = 'http://secret/'"), plan("url = 'http://nobody/'"));
  EXPECT_EQ(plan("name > 'Nobody'"), plan("name > 'Zebra'"));
  EXPECT_EQ(server.administer("SELECT string_agg(DISTINCT a.attname, ' ') FROM pg_statistic s"
                              " JOIN pg_attribute a ON a.attrelid = s.starelid AND a.attnum = s.staattnum"
                              " JOIN pg_class c ON c.oid = s.starelid"
                              " WHERE c.relnamespace = 'corvane_hub'::regnamespace AND c.relkind <> 'i'"),
            "account id")
      << "nothing is told but whose rows they are, and the accounts' numbers";
}

TEST_F(IsolationTest, OperatorsThatLeakSeeNoForeignRow) {
  // Division by zero would tell of a row that the policy hides, were it tried first.
  EXPECT_EQ(
      stateOf(other, "SELECT * FROM corvane_hub.records WHERE 1 / (account - " + accountNumber() + ") = 0"),
      "");
  EXPECT_EQ(stateOf(other, "SELECT * FROM corvane_hub.accounts WHERE 1 / (id - " + accountNumber() + ") = 0"),
            "");
}

TEST_F(IsolationTest, ARoleWithoutAnAccountHasNothing) {
  administer(
      "CREATE ROLE stranger LOGIN PASSWORD 'secret'; CREATE ROLE member LOGIN PASSWORD 'secret' IN ROLE "
      "corvane_account");
  PostgresHub stranger(server.url("stranger", "secret"), computer),
      member(server.url("member", "secret"), computer);
  EXPECT_THAT(failureOf([&] { stranger.remoteChanges({}); }),
              testing::HasSubstr("the server refused the user"));
  const auto isRefused = testing::HasSubstr("the user has no account there");
  EXPECT_THAT(failureOf([&] { member.remoteChanges({}); }), isRefused);
  EXPECT_THAT(failureOf([&] { member.hasPush(newUuidString()); }), isRefused);
  EXPECT_THAT(failureOf([&] { member.isEnabled(kHubDataClass); }), isRefused);
  EXPECT_THAT(failureOf([&] { member.setEnabled(kHubDataClass, true); }), isRefused);
  EXPECT_FALSE(member.push({hub.remoteChanges({}).now, newUuidString(), {}}));
  administer("DROP ROLE stranger; DROP ROLE member");
}

}  // namespace
}  // namespace corvane::pelto
