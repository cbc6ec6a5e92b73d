#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "tests/hub/ExplainedPlans.h"
#include "tests/pelto/HubFixture.h"

// The statements are those that PostgresHub and the service's functions really send, as the server logs them,
// in the midst of six hundred accounts, several in each partition.

namespace corvane::pelto {
namespace {

constexpr int kRecords = 2000;

bool isPartition(const std::string& table) {
  return table.starts_with("records") || table.starts_with("pushes");
}

bool isLookedUpByAccount(const TableScan& scan) {
  const auto names = [&](const char* column) { return scan.condition.find(column) != std::string::npos; };
  if (scan.table == "accounts") return names("(role = ") || names("(id = ") || names("(uid = ");
  return names("(account = ");
}

class PlanTest : public HubTest {
 protected:
  static void SetUpTestSuite() {
    PostgresServer& server = postgresServer();
    server.administer("ALTER SYSTEM SET autovacuum = off");  // statistics are the tests' own matter
    server.administer("SELECT pg_reload_conf()");
    explainEverything(server);
  }

  PlanTest() {
    std::vector<HubRecord> many;
    for (int i = 0; i < kRecords; ++i)
      many.push_back(bookmark("title " + std::to_string(i), "http://" + std::to_string(i) + "/"));
    give(hub, many);
    addOtherAccounts();
  }
  ~PlanTest() override {
    administer(
        "DELETE FROM corvane_hub.records WHERE account <> $; DELETE FROM corvane_hub.pushes WHERE account <> "
        "$;"
        "DELETE FROM corvane_hub.accounts WHERE role LIKE 'other%'");
  }

  // With ten records, forty pushes and a computer each: enough that no partition is so small that the server
  // would rather read it whole.
  void addOtherAccounts() {
    administer(
        "INSERT INTO corvane_hub.accounts(role) SELECT 'other' || n FROM generate_series(1, 600) AS n;"
        "CREATE TEMPORARY TABLE others AS SELECT id FROM corvane_hub.accounts WHERE role LIKE 'other%';"
        "INSERT INTO corvane_hub.records SELECT (jsonb_populate_record(own,"
        "    jsonb_build_object('account', o.id, 'id', gen_random_uuid()))).*"
        "  FROM (SELECT r FROM corvane_hub.records r WHERE account = $ LIMIT 10) AS few(own), others o;"
        "INSERT INTO corvane_hub.pushes SELECT o.id, n, gen_random_uuid(), gen_random_uuid(), now()"
        "  FROM others o, generate_series(1, 40) AS n;"
        "INSERT INTO corvane_hub.given_again SELECT o.id, gen_random_uuid(), n, n"
        "  FROM others o, generate_series(1, 40) AS n;"
        "INSERT INTO corvane_hub.computers SELECT id, '" +
        computer.toString() +
        "', 'one of them', now() FROM others;"
        "INSERT INTO corvane_hub.settings SELECT id, '" +
        computer.toString() + "', 'com.keldra.Bookmarks', true FROM others");
  }

  std::string partitionOf(const std::string& table) {
    return server
        .administer("SELECT tableoid::regclass::text FROM corvane_hub." + table +
                    " WHERE account = (SELECT id FROM corvane_hub.accounts WHERE role = '" + user +
                    "') LIMIT 1")
        .substr(std::string("corvane_hub.").size());
  }

  // Everything that a computer may ask of the service.
  void doEverything() {
    PostgresHub fresh(url, computer);
    fresh.setEnabled(kHubDataClass, true);
    EXPECT_TRUE(fresh.isEnabled(kHubDataClass));
    const RemoteChanges all = fresh.remoteChanges({});
    ASSERT_GE(all.records.size(), static_cast<std::size_t>(kRecords));
    std::vector<HubRecord> half(all.records.begin(), all.records.begin() + kRecords / 2);
    const String pushId = give(fresh, half);
    EXPECT_TRUE(fresh.hasPush(pushId));
    EXPECT_EQ(fresh.remoteChanges({all.now}).records.size(), half.size());
    give(fresh, {bookmark("one more", "http://more/"), tombstone(half.front())});
    EXPECT_EQ(fresh.remoteChanges({fresh.remoteChanges({}).now}).records.size(), 0u);
    const HubState lost{all.now.account, all.now.revision + 5, newUuidString()};
    EXPECT_EQ(fresh.remoteChanges({lost, all.now}).common, all.now);
    EXPECT_TRUE(fresh.push({fresh.remoteChanges({}).now, newUuidString(), {}, {lost}}));
    EXPECT_TRUE(fresh.hasPush(lost.pushId));
    EXPECT_EQ(fresh.remoteChanges({lost, all.now}).givenAgain, lost);
  }

  static void expectOwnRowsAlone(const ExplainedPlan& plan, const std::string& records,
                                 const std::string& pushes) {
    for (const TableScan& scan : plan.scans) {
      if (!scan.isExecuted || scan.table == "version") continue;
      EXPECT_TRUE(isLookedUpByAccount(scan)) << scan.table << " by " << scan.condition << "\n" << plan.text;
      EXPECT_TRUE(scan.table == records || scan.table == pushes || !isPartition(scan.table))
          << "not of " << records << " or " << pushes << "\n"
          << plan.text;
    }
  }

  void expectOwnRowsAlone() {
    const std::string records = partitionOf("records"), pushes = partitionOf("pushes");
    const ExplainedPlans plans(server);
    doEverything();
    std::size_t scans = 0;
    for (const ExplainedPlan& plan : plans.all()) {
      expectOwnRowsAlone(plan, records, pushes);
      scans += plan.scans.size();
    }
    EXPECT_GT(scans, 40u) << "the server must have told its plans";
  }

  static std::int64_t rowsIn(const std::vector<ExplainedPlan>& plans) {
    std::int64_t rows = 0;
    for (const ExplainedPlan& plan : plans) {
      for (const TableScan& scan : plan.scans) rows += scan.rows;
    }
    return rows;
  }

  static std::string textOf(const std::vector<ExplainedPlan>& plans) {
    std::string text;
    for (const ExplainedPlan& plan : plans) text += plan.text + '\n';
    return text;
  }
};

TEST_F(PlanTest, WithoutStatisticsNoStatementReadsOtherAccounts) { expectOwnRowsAlone(); }

TEST_F(PlanTest, WithStatisticsNoStatementReadsOtherAccounts) {
  server.administer("ANALYZE");
  expectOwnRowsAlone();
}

TEST_F(PlanTest, AQuietExchangeTouchesNeitherRecordsNorPushes) {
  const HubState seen = hub.remoteChanges({}).now;
  PostgresHub fresh(url, computer);
  const ExplainedPlans plans(server);
  EXPECT_EQ(fresh.remoteChanges({seen}).records.size(), 0u);
  const std::vector<ExplainedPlan> all = plans.all();
  EXPECT_GT(rowsIn(all), 0);
  for (const ExplainedPlan& plan : all) {
    for (const TableScan& scan : plan.scans)
      EXPECT_TRUE(scan.table == "version" || scan.table == "accounts" || scan.table == "settings" ||
                  scan.table == "computers")
          << plan.text;
  }
}

TEST_F(PlanTest, OneEditReadsAFewRowsHoweverManyThereAre) {
  for (const bool hasStatistics : {false, true}) {
    if (hasStatistics) server.administer("ANALYZE");
    const RemoteChanges before = hub.remoteChanges({});
    HubRecord edited = before.records.front();
    edited.name = hasStatistics ? "once more" : "edited";
    PostgresHub giver(url, computer), taker(url, computer);
    const ExplainedPlans plans(server);
    EXPECT_TRUE(giver.push({before.now, newUuidString(), {edited}}));
    EXPECT_EQ(text(taker.remoteChanges({before.now}).records), text({edited}));
    const std::vector<ExplainedPlan> all = plans.all();
    EXPECT_GT(rowsIn(all), 3);
    EXPECT_LT(rowsIn(all), 40) << textOf(all);
  }
}

TEST_F(PlanTest, StatementsOfAnExchangeOpenOnePartitionOfEachTable) {
  const RemoteChanges before = hub.remoteChanges({});
  PostgresHub giver(url, computer), taker(url, computer);
  const ExplainedPlans plans(server);
  EXPECT_TRUE(giver.push({before.now, newUuidString(), {bookmark("new", "http://new/")}}));
  EXPECT_EQ(taker.remoteChanges({before.now}).records.size(), 1u);
  int parts = 0;
  for (const ExplainedPlan& plan : plans.all()) {
    for (const char* table : {"records_", "pushes_"}) {
      std::vector<std::string> opened;
      for (const TableScan& scan : plan.scans) {
        if (scan.table.starts_with(table)) opened.push_back(scan.table);
      }
      parts += static_cast<int>(opened.size());
      EXPECT_EQ(std::count(opened.begin(), opened.end(), opened.empty() ? "" : opened.front()),
                static_cast<std::ptrdiff_t>(opened.size()))
          << plan.text;
    }
  }
  EXPECT_GT(parts, 2);
}

}  // namespace
}  // namespace corvane::pelto
