#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/store/Database.h"
#include "CorvaneSyncClient/platform/loomer/store/Journal.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

using loomer::BaseRecord;
using loomer::Journal;
using testing::HasSubstr;

namespace fs = std::filesystem;

class JournalTest : public EngineTest {
 protected:
  static BaseRecord record(loomer::RecordId id) {
    BaseRecord record;
    record.record = id;
    record.localId = String("L" + std::to_string(id));
    record.entity = loomer::Entity::folder;
    record.parent = 7;
    record.position = -1000;
    record.content = {"Ünïcode", String(), true, true};
    record.refusedRevision = 9;
    record.notHeld = true;
    return record;
  }

  static Journal full() {
    Journal journal;
    journal.pushId = "0B0C0D0E-0000-4000-8000-000000000000";
    journal.registered = Date{0.1 + 0.2};
    journal.sessions = 12;
    journal.syncedRevision = 34;
    journal.knownPushId = "before";
    journal.known.held = {record(1)};
    journal.known.gone = {2, 5};
    BaseRecord plain;
    plain.record = 4;
    plain.content.url = "http://x/";
    journal.delivered.held = {record(3), plain};
    journal.delivered.gone = {8};
    journal.denied = {{"0B0C0D0E-0000-4000-8000-000000000001", {{record(5)}, {6, 7}}},
                      {"0B0C0D0E-0000-4000-8000-000000000002", {}}};
    journal.added = {"L3", "new"};
    return journal;
  }

  std::string path() const { return (fs::path(storePath).parent_path() / "Journal-1.plist").string(); }
  std::string oldPath() const { return (fs::path(storePath).parent_path() / "HandedDown-1.db").string(); }
  loomer::JournalFile file() const { return loomer::JournalFile(storePath, 1); }
};

void expectSame(const loomer::BaseDifference& a, const loomer::BaseDifference& b) {
  EXPECT_EQ(a.held, b.held);
  EXPECT_EQ(a.gone, b.gone);
}

void expectSame(const Journal& a, const Journal& b) {
  EXPECT_EQ(a.pushId, b.pushId);
  EXPECT_EQ(a.registered.seconds, b.registered.seconds) << "to the last bit";
  EXPECT_EQ(a.sessions, b.sessions);
  EXPECT_EQ(a.syncedRevision, b.syncedRevision);
  EXPECT_EQ(a.knownPushId, b.knownPushId);
  expectSame(a.known, b.known);
  expectSame(a.delivered, b.delivered);
  ASSERT_EQ(a.denied.size(), b.denied.size());
  for (std::size_t i = 0; i < a.denied.size(); ++i) {
    EXPECT_EQ(a.denied[i].pushId, b.denied[i].pushId);
    expectSame(a.denied[i].after, b.denied[i].after);
  }
  EXPECT_EQ(a.added, b.added);
}

TEST_F(JournalTest, IsReadAsItWasWritten) {
  EXPECT_FALSE(file().read());
  file().write(full());
  ASSERT_TRUE(file().read());
  expectSame(*file().read(), full());
  Journal least;
  least.pushId = "push";
  file().write(least);
  ASSERT_TRUE(file().read());
  expectSame(*file().read(), least);
  file().remove();
  EXPECT_FALSE(file().read());
  EXPECT_TRUE(platform.log.messages.empty());
}

TEST_F(JournalTest, IsClosedToOthersWhateverTheUmask) {
  const mode_t before = umask(0);
  file().write(full());
  umask(before);
  EXPECT_EQ(fs::status(path()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(JournalTest, ADamagedOneIsNotUsedAndALineSaysWhy) {
  const Value good = readPropertyList([&] {
    file().write(full());
    return contents(path());
  }());
  const auto damaged = [&](const std::string& bytes, const char* why) {
    platform.log.messages.clear();
    std::ofstream(path(), std::ios::binary | std::ios::trunc) << bytes;
    EXPECT_FALSE(file().read());
    ASSERT_EQ(platform.log.messages.size(), 1u) << why;
    EXPECT_THAT(
        platform.log.messages.front(),
        testing::AllOf(HasSubstr(path()), HasSubstr("cannot be read and is not used"), HasSubstr(why)));
  };
  damaged("no property list", "property list");
  damaged(contents(path()).substr(0, 5), "property list");
  damaged(writeBinaryPropertyList(Value("text")), "it has no dictionary");
  const auto with = [&](const char* key, const Value& value) {
    Dictionary dictionary = *good.as<Dictionary>();
    dictionary.set(key, value);
    return writeBinaryPropertyList(dictionary);
  };
  const auto without = [&](const char* key) {
    Dictionary dictionary = *good.as<Dictionary>();
    dictionary.remove(key);
    return writeBinaryPropertyList(dictionary);
  };
  damaged(with("Version", 3), "another version");
  damaged(with("SyncedRevision", "x"), "number for the revision");
  Array rows;
  rows.append(Array{1, 2});
  damaged(with("Known", Dictionary{{"Held", rows}, {"Gone", Array{}}}), "number of fields");
  damaged(with("Known", Dictionary{{"Held", Array{}}, {"Gone", Array{3, 2}}}), "out of order");
  damaged(with("Known", Dictionary{{"Held", Data("\x02")}, {"Gone", Array{}}}), "cut short");
  damaged(with("Added", Data("\x7F")), "cut short");
  damaged(with("Added", Data(std::string(11, '\x80'))), "no end");
  damaged(with("Denied", Array{"x"}), "delivery where one belongs");
  damaged(with("Denied", Array{Dictionary{{"PushId", "x"}}}), "difference between two bases");
  for (const char* key : {"Version", "PushId", "Registered", "Sessions", "Known", "Delivered", "Added"}) {
    damaged(without(key), "it has no ");
  }
  platform.log.messages.clear();
}

// As earlier versions wrote it: an array of fields for each record.
TEST_F(JournalTest, OneWithRowsIsReadToo) {
  file().write(full());
  Dictionary dictionary = *readPropertyList(contents(path())).as<Dictionary>();
  dictionary.set("Version", 1);
  const Array row{1, 0, 7, -1000, 9, 7, "L1", "Ünïcode", false};
  dictionary.set("Known", Dictionary{{"Held", Array{Value(row)}}, {"Gone", Array{2, 5}}});
  dictionary.set("Added", Array{"L3", "new"});
  std::ofstream(path(), std::ios::binary | std::ios::trunc) << writeBinaryPropertyList(dictionary);
  ASSERT_TRUE(file().read());
  expectSame(*file().read(), full());
}

TEST_F(JournalTest, NumbersAndTextsOfAllSizesComeBack) {
  Journal journal;
  journal.pushId = "push";
  constexpr std::int64_t kNumbers[] = {
      std::numeric_limits<std::int64_t>::min(), -129, -64, -1, 0, 63, 64, 8191, 8192,
      std::numeric_limits<std::int64_t>::max()};
  for (const std::int64_t number : kNumbers) {
    journal.delivered.gone.push_back(number);
    journal.added.push_back(std::string(static_cast<std::size_t>(number & 0x1FFF), 'x'));
  }
  file().write(journal);
  ASSERT_TRUE(file().read());
  expectSame(*file().read(), journal);
}

TEST_F(JournalTest, OneOfTheOlderFormIsTakenOverOnce) {
  {
    std::ofstream(oldPath()).flush();
    loomer::Database old(oldPath());
    old.execute(R"sql(
      CREATE TABLE session(mark TEXT NOT NULL, registered REAL NOT NULL, sessions INTEGER NOT NULL,
        synced_revision INTEGER, known_mark TEXT);
      CREATE TABLE held(known INTEGER NOT NULL, record INTEGER NOT NULL, local_id TEXT, entity INTEGER NOT NULL,
        parent INTEGER NOT NULL, position INTEGER NOT NULL, refused_revision INTEGER NOT NULL,
        not_held INTEGER NOT NULL, name TEXT, url TEXT, tab_group INTEGER NOT NULL, special INTEGER NOT NULL,
        PRIMARY KEY (known, record)) WITHOUT ROWID;
      CREATE TABLE added(local_id TEXT PRIMARY KEY) WITHOUT ROWID;
      CREATE TABLE gone(known INTEGER NOT NULL, record INTEGER NOT NULL, PRIMARY KEY (known, record)) WITHOUT ROWID;
      INSERT INTO session VALUES('0B0C0D0E-0000-4000-8000-000000000000', 0.1 + 0.2, 12, 34, 'before');
      INSERT INTO held VALUES(1, 1, 'L1', 0, 7, -1000, 9, 1, 'Ünïcode', NULL, 1, 1);
      INSERT INTO held VALUES(0, 3, 'L3', 0, 7, -1000, 9, 1, 'Ünïcode', NULL, 1, 1);
      INSERT INTO held VALUES(0, 4, NULL, 1, 0, 0, 0, 0, NULL, 'http://x/', 0, 0);
      INSERT INTO gone VALUES(1, 2), (1, 5), (0, 8);
      INSERT INTO added VALUES('L3'), ('new');
      PRAGMA user_version = 1;
    )sql",
                "make an old journal");
  }
  ASSERT_TRUE(file().read());
  Journal journal = full();
  journal.denied.clear();
  expectSame(*file().read(), journal);
  file().remove();
  EXPECT_FALSE(fs::exists(oldPath()));
  std::ofstream(oldPath()) << "no database";
  EXPECT_FALSE(file().read());
}

TEST_F(JournalTest, OneThatCannotBeWrittenCancelsTheSessionBeforeTheClientSaves) {
  const auto a = makeClient("a"), b = makeClient("b");
  ASSERT_EQ(b->sync(), "");
  b->calls.clear();
  a->addBookmark("", "New", "http://new/");
  ASSERT_EQ(a->sync(), "");
  const std::string journal =
      (fs::path(storePath).parent_path() /
       ("Journal-" + std::to_string(manager().clientWithIdentifier("b")->row()) + ".plist"))
          .string();
  fs::create_directories(journal + "/in the way");
  platform.log.expectMessages({"The journal " + journal + " cannot be read and is not used: Is a directory"});
  EXPECT_THAT(b->sync(), testing::AllOf(HasSubstr(journal), HasSubstr("cannot write the journal")));
  EXPECT_THAT(b->calls, testing::Not(testing::Contains("will finish")));
  fs::remove_all(journal);
  EXPECT_EQ(b->sync(), "");
  EXPECT_EQ(b->text(), "New@http://new/");
}

}  // namespace
}  // namespace corvane
