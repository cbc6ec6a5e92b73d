#include <gmock/gmock.h>

#include <cstdio>
#include <regex>

#include "CorvaneSyncClient/platform/loomer/store/Migrations.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"
#include "tests/loomer/engine/EngineFixture.h"
#include "tests/loomer/engine/FirstVersionStore.h"

namespace corvane {
namespace {

using testing::HasSubstr;

class TruthStoreTest : public EngineTest {
 protected:
  // Opening must be refused with path, cause and remedy, and must leave the file as it is.
  void expectRefused(const std::string& cause, const std::string& remedy) {
    const std::string before = contents(storePath);
    try {
      loomer::EmbeddedManager refused(storePath);
      ADD_FAILURE() << "opened";
    } catch (const loomer::LoomerStoreException& exception) {
      EXPECT_EQ(exception.name(), "LoomerStoreException");
      EXPECT_THAT(exception.reason(), HasSubstr(storePath));
      EXPECT_THAT(exception.reason(), HasSubstr(cause));
      EXPECT_THAT(exception.reason(), HasSubstr(remedy));
    }
    EXPECT_EQ(contents(storePath), before) << "it is never overwritten";
    platform.realFiles.remove(storePath);
  }
  // Every table and index as it is defined, without comments and white space.
  std::string form() {
    loomer::Statement query =
        store().database().query("SELECT name, coalesce(sql, '') FROM sqlite_schema ORDER BY name", "test");
    std::string text;
    query.open();
    while (query.next()) {
      const std::string sql = std::regex_replace(query.text(1).toString(), std::regex("--[^\n]*|\\s"), "");
      text += query.text(0).toString() + ' ' + sql + '\n';
    }
    return text;
  }
  void fill(int bookmarks) {
    const auto client = makeClient("a");
    for (int i = 0; i < bookmarks; ++i) {
      client->addBookmark("", "B" + std::to_string(i), "http://b/" + std::to_string(i));
    }
    ASSERT_EQ(client->sync(), "");
  }
};

TEST_F(TruthStoreTest, FileThatIsNoDatabaseIsRefused) {
  close();
  platform.realFiles.write(
      storePath, "This is a letter to somebody, and long enough to be looked at. " + std::string(2000, 'x'));
  expectRefused("not a database", "Put a backup");
}

TEST_F(TruthStoreTest, DatabaseOfAnotherProgramIsRefused) {
  close();
  platform.realFiles.remove(storePath);
  platform.realFiles.write(storePath, "");
  {
    loomer::Database other(storePath);
    other.execute("CREATE TABLE notes(text TEXT)", "make");
  }
  expectRefused("not one of the sync engine's", "Move it away");
}

TEST_F(TruthStoreTest, NewerStoreIsRefused) {
  store().database().execute("PRAGMA user_version = 99", "age");
  close();
  expectRefused("version 99", "Install the newer version");
}

TEST_F(TruthStoreTest, StoreWithADamagedHeadIsRefused) {
  fill(50);
  close();
  std::string bytes = contents(storePath);
  bytes.replace(100, 200, 200, '\x5a');  // the page of the tables' definitions
  platform.realFiles.write(storePath, bytes);
  expectRefused("malformed", "Put a backup");
}

TEST_F(TruthStoreTest, DamageFurtherInEndsTheSessionAndLeavesTheFile) {
  close();
  const std::size_t ofEmptyStore = contents(storePath).size() / 4096;
  reopen();
  fill(2000);
  close();
  const std::string good = contents(storePath);
  std::string bytes = good;
  for (std::size_t page = ofEmptyStore; (page + 1) * 4096 < bytes.size(); ++page)
    bytes.replace(page * 4096, 64, 64, '\xee');
  platform.realFiles.write(storePath, bytes);
  reopen();
  const auto client = makeClient("a");
  client->mode = LoomerSyncModeSlow;
  const std::string error = client->sync();
  EXPECT_THAT(error, HasSubstr(storePath));
  EXPECT_THAT(error, HasSubstr("malformed"));
  EXPECT_FALSE(loomer::checkStore(store()).empty());
  close();
  platform.realFiles.write(storePath, good);
}

TEST_F(TruthStoreTest, EmptyFileBecomesAStore) {
  close();
  for (const char* suffix : {"", "-wal", "-shm"}) platform.realFiles.remove(storePath + suffix);
  platform.realFiles.write(storePath, "");
  reopen();
  EXPECT_EQ(number("PRAGMA user_version"), static_cast<std::int64_t>(loomer::storeMigrations().size()));
}

TEST_F(TruthStoreTest, StoreThatCannotBeMadeIsAnErrorWithItsPath) {
  platform.realFiles.write(platform.directory / "file", "");
  const std::string path = platform.directory / "file/Loomer/Truth.db";
  try {
    loomer::TruthStore refused(path);
    FAIL() << "opened";
  } catch (const loomer::LoomerStoreException& exception) {
    EXPECT_EQ(exception.name(), "LoomerStoreException");
    EXPECT_THAT(exception.reason(), HasSubstr(path));
    EXPECT_THAT(exception.reason(), HasSubstr("Not a directory"));
  }
}

TEST_F(TruthStoreTest, ConnectionIsDurableAndChecksReferences) {
  EXPECT_EQ(number("PRAGMA synchronous"), 2) << "FULL";
  EXPECT_EQ(number("PRAGMA foreign_keys"), 1);
  EXPECT_EQ(number("PRAGMA application_id"), loomer::kStoreApplicationId);
  loomer::Statement mode = store().database().query("PRAGMA journal_mode", "test");
  ASSERT_TRUE(mode.open().next());
  EXPECT_EQ(mode.text(0), "wal");
}

TEST_F(TruthStoreTest, AStoreOfTheFirstVersionIsBroughtToThePresentForm) {
  const std::string present = form();
  close();
  for (const char* suffix : {"-wal", "-shm"}) platform.realFiles.remove(storePath + suffix);
  platform.realFiles.write(storePath, "");
  loomer::Database(storePath).execute(kFirstVersionStore, "make an old store");
  reopen();
  EXPECT_EQ(form(), present);
  EXPECT_EQ(number("PRAGMA user_version"), static_cast<std::int64_t>(loomer::storeMigrations().size()));
  EXPECT_EQ(manager().clientWithIdentifier("a")->objectForKey("key"), Value("kept"));
  EXPECT_EQ(loomer::SessionLog(store()).sessions().size(), 2u);
  EXPECT_EQ(loomer::RefusalTable(store()).deletions(2).size(), 3u);
  const auto a = makeClient("a"), b = makeClient("b");
  for (ScriptedClient* client : {a.get(), b.get()}) {
    client->addBookmark(client->addFolder("", "F"), "A", "http://a/");
    client->mode = LoomerSyncModeSlow;
  }
  b->addBookmark("", "Old", "http://old/");
  EXPECT_EQ(a->sync(), "");
  EXPECT_EQ(b->sync(), "");
  EXPECT_EQ(number("SELECT revision FROM truth"), 2) << "nobody has anything new";
  EXPECT_EQ(a->text(), "F(A@http://a/)");
  EXPECT_EQ(b->text(), "F(A@http://a/)");
}

TEST_F(TruthStoreTest, MigrationsTakeOnlyTheStepsNotTakenYet) {
  fill(3);
  const auto real = loomer::storeMigrations();
  std::vector<const char*> steps(real.begin(), real.end());
  steps.push_back(
      "CREATE TABLE added(x INTEGER); INSERT INTO added SELECT count(*) FROM records WHERE id > 0");
  store().writing([&] { loomer::migrate(store().database(), steps); });
  EXPECT_EQ(number("PRAGMA user_version"), static_cast<std::int64_t>(steps.size()));
  EXPECT_EQ(number("SELECT x FROM added"), 3) << "what was there is still there";
  store().writing([&] { loomer::migrate(store().database(), steps); });
  EXPECT_EQ(number("SELECT count(*) FROM added"), 1);
  store().database().execute("DROP TABLE added", "clean");
}

TEST_F(TruthStoreTest, FailingMigrationLeavesTheStoreAsItWas) {
  fill(3);
  const auto real = loomer::storeMigrations();
  std::vector<const char*> steps(real.begin(), real.end());
  steps.push_back("CREATE TABLE added(x INTEGER); INSERT INTO nowhere VALUES(1)");
  EXPECT_THROW(store().writing([&] { loomer::migrate(store().database(), steps); }), PlatformException);
  EXPECT_EQ(number("PRAGMA user_version"), static_cast<std::int64_t>(real.size()));
  EXPECT_EQ(number("SELECT count(*) FROM sqlite_schema WHERE name = 'added'"), 0);
}

TEST_F(TruthStoreTest, InvariantsOfTheTreeAreConstraints) {
  fill(2);
  struct Row {
    const char* phrase;
    const char* sql;
  };
  const Row rows[] = {
      {"two siblings on one place", "UPDATE records SET place = 0 WHERE id > 0"},
      {"a parent that does not exist", "UPDATE records SET parent = 77 WHERE id = 1"},
      {"a record that is its own parent", "UPDATE records SET parent = 1 WHERE id = 1"},
      {"a second root", "UPDATE records SET parent = NULL WHERE id = 1"},
      {"an entity that there is not", "UPDATE records SET entity = 2 WHERE id = 1"},
  };
  for (const Row& row : rows) {
    EXPECT_THROW(store().database().execute(row.sql, row.phrase), PlatformException) << row.phrase;
    store().database().rollback();
  }
}

TEST_F(TruthStoreTest, RowsAreInsertedAsTheyWereAddedHoweverManyThereAre) {
  loomer::Database& database = store().database();
  database.execute("CREATE TEMP TABLE rows(number INTEGER PRIMARY KEY, text TEXT)", "test");
  static const loomer::RowInsert insert("INSERT INTO rows(number, text)", 2);
  constexpr std::size_t kMany = loomer::RowInsert::kMany;
  for (const std::size_t most : {std::size_t{1}, kMany}) {
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, kMany - 1, kMany, kMany + 1, 3 * kMany}) {
      std::vector<String> texts;
      for (std::size_t i = 0; i < count; ++i)
        texts.push_back(i % 3 == 0 ? String() : String(std::to_string(i)));
      loomer::RowInsertion insertion(database, insert, most, "test");
      for (std::size_t i = 0; i < count; ++i) insertion.add(i, texts[i]);
      insertion.finish();
      std::vector<String> stored;
      loomer::Statement query = database.query("SELECT text FROM rows ORDER BY number", "test");
      query.open();
      while (query.next()) stored.push_back(query.text(0));
      EXPECT_EQ(stored, texts) << count << " rows, " << most << " expected";
      database.query("DELETE FROM rows", "test").run();
    }
  }
}

TEST_F(TruthStoreTest, CheckNamesCyclesAndParentsThatAreNoFolders) {
  const auto client = makeClient("a");
  const std::string outer = client->addFolder("", "Outer");
  client->addFolder(outer, "Inner");
  client->addBookmark("", "B", "http://b/");
  client->addBookmark("", "C", "http://c/");
  ASSERT_EQ(client->sync(), "");
  const std::int64_t outerId =
      number("SELECT r.id FROM records r JOIN contents c ON c.id = content WHERE name = 'Outer'");
  const std::int64_t innerId =
      number("SELECT r.id FROM records r JOIN contents c ON c.id = content WHERE name = 'Inner'");
  store().database().execute("CREATE TEMP TABLE old AS SELECT id, parent FROM records", "keep");
  store()
      .database()
      .query("UPDATE records SET parent = ? WHERE id = ?", "close a cycle")
      .run(innerId, outerId);
  EXPECT_EQ(loomer::checkStore(store()).size(), 2u) << "both folders are out of reach";
  store().database().execute(
      "UPDATE records SET parent = (SELECT parent FROM temp.old o WHERE o.id = records.id)", "heal");
  store().database().execute(
      "UPDATE records SET parent = (SELECT min(id) FROM records WHERE entity = 1) WHERE id ="
      " (SELECT max(id) FROM records WHERE entity = 1)",
      "hang");
  EXPECT_THAT(loomer::checkStore(store()), testing::ElementsAre(HasSubstr("no live folder")));
  store().database().execute(
      "UPDATE records SET parent = (SELECT parent FROM temp.old o WHERE o.id = records.id)", "heal");
}

TEST_F(TruthStoreTest, AnIndependentReaderFindsTheRecords) {
  const auto client = makeClient("a");
  const std::string folder = client->addFolder("", "F\xc3\xbc");
  client->addBookmark(folder, "A", "http://a/");
  ASSERT_EQ(client->sync(), "");
  client->rename(client->find("A"), "A2");
  ASSERT_EQ(client->sync(), "");
  close();
  const std::string script = platform.directory / "read.py";
  platform.realFiles.write(script, R"py(
import sqlite3, sys
db = sqlite3.connect("file:" + sys.argv[1].replace(" ", "%20") + "?mode=ro", uri=True)
assert db.execute("PRAGMA integrity_check").fetchall() == [("ok",)]
assert db.execute("PRAGMA foreign_key_check").fetchall() == []
rows = db.execute("SELECT r.id, r.entity, r.parent, c.name, c.url, length(r.global_id), r.revision FROM records r "
                  "JOIN contents c ON c.id = r.content ORDER BY r.id").fetchall()
assert rows == [(1, 0, 0, "F\u00fc", None, 16, 1), (2, 1, 1, "A2", "http://a/", 16, 2)], rows
base = db.execute("SELECT b.record, c.name FROM base b JOIN contents c ON c.id = b.content ORDER BY 1").fetchall()
assert base == [(1, "F\u00fc"), (2, "A2")], base
log = db.execute("SELECT b.name, a.name FROM changes JOIN contents b ON b.id = before_content "
                 "JOIN contents a ON a.id = after_content").fetchall()
assert log == [("A", "A2")], log
assert db.execute("SELECT count(*) FROM contents").fetchone() == (3,), "what is equal is stored once"
print("read")
)py");
  const std::string command = "python3 '" + script + "' '" + storePath + "' 2>&1";
  std::FILE* output = popen(command.c_str(), "r");
  ASSERT_NE(output, nullptr);
  char text[2000] = {};
  const std::size_t size = std::fread(text, 1, sizeof text - 1, output);
  EXPECT_EQ(pclose(output), 0) << std::string(text, size);
  EXPECT_STREQ(text, "read\n");
}

}  // namespace
}  // namespace corvane
