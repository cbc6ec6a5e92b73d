// `check`: a broken store for each rule.

#include <gmock/gmock.h>

#include "tests/ctl/CtlFixture.h"

namespace corvane {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class CheckTest : public CtlTest {};

TEST_F(CheckTest, ASoundStoreIsSaidToBeSound) {
  seed();
  const Run run = ctl({"check"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out, "The store is sound.\n");
  EXPECT_EQ(json({"check"}, "d['sound'], d['findings']"), "True []");
}

struct BrokenStore {
  const char* phrase;
  const char* sql;
  const char* rule;
  const char* problem;
  const char* remedy;
  friend void PrintTo(const BrokenStore& row, std::ostream* out) { *out << row.phrase; }
};

class BrokenStoreTest : public CtlTest, public testing::WithParamInterface<BrokenStore> {};

TEST_P(BrokenStoreTest, IsFoundAndSaysWhatToDo) {
  const BrokenStore& row = GetParam();
  seed();
  breakCopy(row.sql);
  const Run run = ctl({"check"});
  EXPECT_EQ(run.status, 3) << row.phrase << run.err;
  EXPECT_THAT(run.out, AllOf(HasSubstr(row.problem), HasSubstr(row.remedy)));
  EXPECT_EQ(json({"check"}, std::string("'") + row.rule + "' in [f['rule'] for f in d['findings']]", 3),
            "True");
}

constexpr const char* kRebuild = "loomerctl export FILE";
constexpr const char* kReset = "loomerctl reset a";

const BrokenStore kBrokenStores[] = {
    {"parents exist", "UPDATE records SET parent = 77 WHERE id = (SELECT max(id) FROM records)", "parent",
     "the parent is no live folder", kRebuild},
    {"parents live: the parent is a tombstone",
     "INSERT INTO tombstones SELECT id, global_id, entity, parent, place, content, revision FROM records "
     "WHERE id ="
     " (SELECT parent FROM records JOIN contents c ON c.id = content WHERE c.name = 'Daily');"
     "DELETE FROM records WHERE id IN (SELECT id FROM tombstones)",
     "parent", "the parent is no live folder", kRebuild},
    {"parents are folders",
     "UPDATE records SET parent = (SELECT min(id) FROM records WHERE entity = 1) WHERE id ="
     " (SELECT max(id) FROM records WHERE entity = 1)",
     "parent", "the parent is no live folder", kRebuild},
    {"no cycles",
     "UPDATE records SET parent = (SELECT r.id FROM records r JOIN contents c ON c.id = r.content WHERE "
     "c.name ="
     " 'News') WHERE content IN (SELECT id FROM contents WHERE name = 'BookmarksBar')",
     "out of reach", "form a cycle or are gone", kRebuild},
    {"no two live siblings on one place", "UPDATE records SET place = 0 WHERE id > 0", "place taken twice",
     "two siblings share a place", kRebuild},
    {"specials at most one of each title",
     "INSERT INTO records(id, entity, parent, place, content, revision) SELECT 50, 0, 0, 999, content, 1 "
     "FROM records"
     " JOIN contents c ON c.id = content WHERE c.special; UPDATE truth SET next_record = 60",
     "special folder twice", "(BookmarksBar)", "Sync a client"},
    {"specials directly in the root", "UPDATE contents SET special = 1 WHERE name = 'News'", "special record",
     "special, but no folder directly in the root", "Sync a client"},
    {"both live and deleted",
     "INSERT INTO tombstones SELECT id, global_id, entity, parent, place, content, revision FROM records "
     "WHERE id = 1",
     "live and deleted", "both live and deleted: record 1", kRebuild},
    {"counters behind the records", "UPDATE truth SET next_record = 2", "counters", "newer than the counters",
     kRebuild},
    {"counters behind a tombstone",
     "INSERT INTO tombstones SELECT 900, randomblob(16), entity, parent, place, content, revision FROM "
     "records WHERE id = 1",
     "counters", "newer than the counters of the store: record 900", kRebuild},
    {"an identifier cut short", "UPDATE records SET global_id = x'0102' WHERE id = 1", "identifier",
     "the identifier is none: record 1", kRebuild},
    {"an identifier that is no bytes", "UPDATE records SET global_id = '0123456789abcdef' WHERE id = 1",
     "identifier", "the identifier is none: record 1", kRebuild},
    {"an identifier twice",
     "UPDATE records SET global_id = (SELECT global_id FROM records WHERE id = 1) WHERE id = 2",
     "identifier twice", "two records have one identifier: records 1, 2", kRebuild},
    {"an identifier of a live and a deleted record",
     "INSERT INTO tombstones SELECT 900, global_id, entity, parent, place, content, revision FROM records "
     "WHERE id = 1; UPDATE truth SET next_record = 901",
     "identifier twice", "records 1, 900", kRebuild},
    {"bases that name records the truth does not have",
     "UPDATE base SET record = 88 WHERE record = 1 AND client = (SELECT id FROM clients WHERE identifier = "
     "'a')",
     "base of an unknown record", "(client, record): a, 88", kReset},
    {"a base of another kind",
     "UPDATE base SET entity = 1 - entity WHERE record = 1 AND client = (SELECT id FROM clients WHERE "
     "identifier = 'a')",
     "base of another kind", "(client, record): a, 1", kReset},
    {"local ids twice",
     "UPDATE base SET local_id = 'same' WHERE record < 3 AND client = (SELECT id FROM clients WHERE "
     "identifier = 'a')",
     "local id twice", "(client, id): a, same", kReset},
    {"orphaned values", "INSERT INTO client_values VALUES(77, 'k', x'00')", "reference", "client_values",
     kRebuild},
    {"orphaned base", "UPDATE base SET client = 77 WHERE record = 1 AND client = 1", "reference", "base ",
     kRebuild},
    {"orphaned logs", "UPDATE changes SET session = 99 WHERE record = 1", "reference", "changes ", kRebuild},
    {"a log of records that there never were", "UPDATE changes SET record = 500 WHERE record = 1",
     "logged record", "record 500", kRebuild},
    {"a record without content", "UPDATE records SET content = 999 WHERE id = 1", "content",
     "what it says is missing: records 1", kRebuild},
    {"no root", "DELETE FROM records WHERE id = 0", "root missing", "a row is missing", kRebuild},
    {"a value that cannot be read", "UPDATE client_values SET value = x'001122'", "unreadable value",
     "cannot be read", "--unregistersyncclient"},
    {"SQLite's own integrity: an index on another's page",
     "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET rootpage = (SELECT rootpage FROM sqlite_schema "
     "WHERE name ="
     " 'losses') WHERE name = 'tombstones_by_revision'",
     "integrity", "2nd reference to page", kRebuild},
};

INSTANTIATE_TEST_SUITE_P(Rules, BrokenStoreTest, testing::ValuesIn(kBrokenStores));

TEST_F(CheckTest, ManyFindingsOfOneKindAreCounted) {
  a = makeClient("a");
  const std::string folder = a->addFolder("", "F");
  for (int i = 0; i < 30; ++i) a->addBookmark(folder, "B", "http://b/");
  ASSERT_EQ(a->sync(), "");
  breakCopy("UPDATE records SET parent = 77 WHERE entity = 1");
  EXPECT_THAT(ctl({"check"}).out, HasSubstr("… and 10 more of the kind \"parent\""));
  EXPECT_EQ(json({"check"}, "[f['rule'] for f in d['findings']].count('parent')", 3), "30");
}

TEST_F(CheckTest, DamagedPagesAreFindings) {
  a = makeClient("a");
  for (int i = 0; i < 2000; ++i) a->addBookmark("", "B" + std::to_string(i), "http://b/");
  ASSERT_EQ(a->sync(), "");
  breakCopy("");
  std::string bytes = contents(ctlStorePath());
  for (std::size_t page = 25; (page + 1) * 4096 < bytes.size(); ++page)
    bytes.replace(page * 4096, 64, 64, '\xee');
  writeFile(ctlStorePath(), bytes);
  const Run run = ctl({"check"});
  EXPECT_EQ(run.status, 3);
  EXPECT_THAT(run.out, HasSubstr("What to do"));
  EXPECT_EQ(json({"check"}, "d['sound']", 3), "False");
  EXPECT_EQ(ctl({"tree"}).status, 3);
}

}  // namespace
}  // namespace corvane
