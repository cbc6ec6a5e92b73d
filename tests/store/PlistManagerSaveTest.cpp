// Saving the file: what is written, when it is refused, what others are told.

#include <gmock/gmock.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "tests/store/PlistManagerTest.h"

namespace corvane {
namespace {

using testing::Each;
using testing::ElementsAre;
using testing::SizeIs;

namespace fs = std::filesystem;

class PlistManagerSaveTest : public PlistManagerTest {
 protected:
  std::string couldNotWrite(const std::string& cause) const {
    return "Could not write bookmarks file " + file + ": " + cause;
  }

  const Dictionary mine = bookmarksOf(7);
};

// Saving with `checkIfModified:` true into a directory with no bookmarks file and no remembered date writes
// the file.
TEST_F(PlistManagerSaveTest, CheckedSaveIntoAnEmptyDirectoryWrites) {
  const std::optional<Date> date = manager.saveBookmarks(&mine, true);
  EXPECT_EQ(date, dateOf(file));
  EXPECT_EQ(fileOnDisk(), mine);
  EXPECT_EQ(notifications(), 1u);
  EXPECT_EQ(manager.modificationDate(), std::nullopt) << "a save changes nothing that was remembered";
}

// The written file is a binary property list.
TEST_F(PlistManagerSaveTest, FileIsABinaryPropertyListThatPythonReads) {
  const Dictionary bookmarks{
      {"Children", Array{Dictionary{{"URLString", "http://example.com/?q=\xC3\xA9"}}, true}},
      {"Date", Date{0}},
      {"WebBookmarkFileVersion", 1}};
  ASSERT_TRUE(manager.saveBookmarks(&bookmarks, false));
  EXPECT_EQ(readByPython(file, "FMT_BINARY"),
            "{'Children': [{'URLString': 'http://example.com/?q=\xC3\xA9'}, True], "
            "'Date': datetime.datetime(2001, 1, 1, 0, 0), 'WebBookmarkFileVersion': 1}\n");
  EXPECT_EQ(contentsOf(file).substr(0, 8), "bplist00");
}

TEST_F(PlistManagerSaveTest, CheckedSaveOfAnUnchangedFileWrites) {
  putFile(bookmarksOf(1), 1000.125);
  manager.dictionary();
  const std::optional<Date> date = manager.saveBookmarks(&mine, true);
  EXPECT_EQ(date, dateOf(file));
  EXPECT_EQ(fileOnDisk(), mine);
  EXPECT_EQ(notifications(), 1u);
  EXPECT_EQ(manager.modificationDate(), Date{1000.125}) << "the caller re-reads when it needs the new date";
  // Which the file no longer has, so that the next checked save needs a reading before it.
  EXPECT_EQ(manager.saveBookmarks(&mine, true), std::nullopt);
  EXPECT_EQ(manager.dictionary(), mine);
  EXPECT_TRUE(manager.saveBookmarks(&mine, true));
}

struct RefusalCase {
  const char* phrase;
  std::optional<double> dateAtReading;  // none: no file, or none read
  std::optional<double> dateAtSaving;   // none: no file
  const char* traced;
  friend void PrintTo(const RefusalCase& row, std::ostream* out) { *out << row.phrase; }
};

const RefusalCase kRefusalCases[] = {
    {"the file was touched, newer date", 1000, 1000.5,
     "2001-01-01 00:16:40 +0000 ( 1000.000000000000000000), attribute date is 2001-01-01 00:16:40 +0000 "
     "( 1000.500000000000000000)"},
    {"the file was put back, older date", 1000, 999,
     "2001-01-01 00:16:40 +0000 ( 1000.000000000000000000), attribute date is 2001-01-01 00:16:39 +0000 "
     "(  999.000000000000000000)"},
    {"the file vanished while a date is remembered", 1000, std::nullopt,
     "2001-01-01 00:16:40 +0000 ( 1000.000000000000000000), attribute date is (null) (    "
     "0.000000000000000000)"},
    {"the file exists but none was remembered", std::nullopt, 1000,
     "(null) (    0.000000000000000000), attribute date is 2001-01-01 00:16:40 +0000 "
     "( 1000.000000000000000000)"},
};

class PlistManagerRefusalTable : public PlistManagerSaveTest,
                                 public testing::WithParamInterface<RefusalCase> {};

// Saving after the file was touched returns absent and leaves the file, the backups and the notification
// alone.
TEST_P(PlistManagerRefusalTable, NothingIsWritten) {
  const RefusalCase& row = GetParam();
  turnBackupsOn();
  if (row.dateAtReading) putFile(bookmarksOf(1), *row.dateAtReading);
  manager.dictionary();
  fs::remove(file);
  if (row.dateAtSaving) putFile(bookmarksOf(2), *row.dateAtSaving);
  const std::optional<Dictionary> before = fileOnDisk();

  EXPECT_EQ(manager.saveBookmarks(&mine, true), std::nullopt);

  EXPECT_EQ(fileOnDisk(), before);
  EXPECT_EQ(notifications(), 0u);
  EXPECT_EQ(platform.log.diagnostics.back(), std::string("SaveBookmarks: mod date ") + row.traced);
  if (!row.dateAtSaving) leftOnDisk = {};
}

// Without the check all of these are written.
TEST_P(PlistManagerRefusalTable, IsWrittenWithoutTheCheck) {
  const RefusalCase& row = GetParam();
  if (row.dateAtReading) putFile(bookmarksOf(1), *row.dateAtReading);
  manager.dictionary();
  const std::size_t traces = platform.log.diagnostics.size();
  fs::remove(file);
  if (row.dateAtSaving) putFile(bookmarksOf(2), *row.dateAtSaving);

  const std::optional<Date> date = manager.saveBookmarks(&mine, false);
  EXPECT_EQ(date, dateOf(file));

  EXPECT_EQ(fileOnDisk(), mine);
  EXPECT_EQ(notifications(), 1u);
  EXPECT_THAT(platform.log.diagnostics, SizeIs(traces)) << "dates are looked at only when asked for";
}

INSTANTIATE_TEST_SUITE_P(All, PlistManagerRefusalTable, testing::ValuesIn(kRefusalCases));

// A link at the path is replaced by a regular file, while the dates are still read from the link's old
// target.
TEST_F(PlistManagerSaveTest, LinkIsReplacedWhileDatesComeFromItsOldTarget) {
  fs::create_directory(guarded + "/elsewhere");
  const std::string target = guarded + "/elsewhere/Real.plist";
  writeFile(target, writeXmlPropertyList(bookmarksOf(1)));
  setDate(target, 1000);
  fs::create_symlink("elsewhere/Real.plist", file);
  manager.dictionary();

  EXPECT_EQ(manager.saveBookmarks(&mine, true), Date{1000});

  EXPECT_EQ(fs::symlink_status(file).type(), fs::file_type::regular);
  EXPECT_EQ(fileOnDisk(), mine);
  EXPECT_EQ(dictionaryAt(target), bookmarksOf(1));
  EXPECT_NE(dateOf(file), Date{1000});
  leftOnDisk = {"Bookmarks.plist", "elsewhere/", "elsewhere/Real.plist"};
}

TEST_F(PlistManagerSaveTest, ChangeBehindALinkIsSeen) {
  fs::create_directory(guarded + "/elsewhere");
  const std::string target = guarded + "/elsewhere/Real.plist";
  writeFile(target, writeXmlPropertyList(bookmarksOf(1)));
  fs::create_symlink(target, file);
  manager.dictionary();
  setDate(target, 2000);
  EXPECT_EQ(manager.saveBookmarks(&mine, true), std::nullopt);
  EXPECT_EQ(fs::symlink_status(file).type(), fs::file_type::symlink);
  leftOnDisk = {"Bookmarks.plist", "elsewhere/", "elsewhere/Real.plist"};
}

// The current date when none can be read.
TEST_F(PlistManagerSaveTest, CurrentDateStandsInForOneThatCannotBeRead) {
  platform.files.fail(FileOperation::attributes, 1, std::errc::permission_denied);
  EXPECT_EQ(manager.saveBookmarks(&mine, false), platform.clock.time);
  EXPECT_EQ(notifications(), 1u);
}

// Serialisation or write failed: log line, result absent, no notification, the old file stands.
TEST_F(PlistManagerSaveTest, FailedWriteIsLogged) {
  putFile(bookmarksOf(1), 1000);
  platform.files.fail(FileOperation::writeAtomically, 2,
                      std::errc::no_space_on_device);  // the first: details.plist
  platform.log.expectMessages(
      {couldNotWrite("No space left on device"),
       "SaveBookmarks - error trying to serialize the following: " + description(mine)});
  EXPECT_EQ(manager.saveBookmarks(&mine, false), std::nullopt);
  EXPECT_EQ(fileOnDisk(), bookmarksOf(1));
  EXPECT_EQ(notifications(), 0u);
}

TEST_F(PlistManagerSaveTest, ValueThatNoPropertyListCanHoldIsAFailedWrite) {
  const Dictionary odd{{"Link", Url{"http://example.com/"}}};
  const std::string raised = raisedBy([&] { writeBinaryPropertyList(odd); });
  const std::string name = "PropertyListException: ";
  ASSERT_EQ(raised.substr(0, name.size()), name);
  platform.log.expectMessages(
      {couldNotWrite(raised.substr(name.size())),
       "SaveBookmarks - error trying to serialize the following: {Link = http://example.com/}"});
  EXPECT_EQ(manager.saveBookmarks(&odd, true), std::nullopt);
  EXPECT_EQ(notifications(), 0u);
  leftOnDisk = {};
}

TEST_F(PlistManagerSaveTest, FileThatIsWrittenButNotDurableEndsTheSave) {
  const Dictionary bookmarks{{"Title", "mine"}};
  platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
    const bool isFile = call.operation == FileOperation::writeAtomically && call.path == manager.path();
    return isFile ? std::error_code(EIO, notDurableCategory()) : std::error_code();
  };
  const std::string raised = raisedBy([&] { manager.saveBookmarks(&bookmarks, true); });
  EXPECT_EQ(raised.substr(0, raised.find(':')), "NSGenericException");
  EXPECT_NE(raised.find("may not survive a loss of power"), std::string::npos) << raised;
  leftOnDisk = {};
}

TEST_F(PlistManagerSaveTest, NoDictionaryIsAFailedWrite) {
  platform.log.expectMessages({"SaveBookmarks - error trying to serialize the following: (null)"});
  EXPECT_EQ(manager.saveBookmarks(nullptr, false), std::nullopt);
  EXPECT_EQ(notifications(), 0u);
  leftOnDisk = {};
}

// A file that changed is refused before anything else is looked at.
TEST_F(PlistManagerSaveTest, ChangedFileIsRefusedBeforeSerialising) {
  putFile(bookmarksOf(1), 1000);
  EXPECT_EQ(manager.saveBookmarks(nullptr, true), std::nullopt);
}

// Nobody could be told: one diagnostic line, and the save stands.
TEST_F(PlistManagerSaveTest, FailedNotificationIsTraced) {
  platform.notifications.failure = "no session bus";
  EXPECT_TRUE(manager.saveBookmarks(&mine, false));
  EXPECT_THAT(platform.log.diagnostics,
              ElementsAre("Could not post CorvaneBookmarkFileNotificationName: no session bus"));
}

// The lock stands while the file is written, with this process in it, and is gone before others are told.
TEST_F(PlistManagerSaveTest, FileIsWrittenUnderTheLock) {
  platform.files.before(FileOperation::writeAtomically, 2, [this] {
    EXPECT_EQ(lockOnDisk()->integer32(kLockFileProcessID), platform.process.id);
  });
  ASSERT_TRUE(manager.saveBookmarks(&mine, false));
  EXPECT_EQ(platform.files.count(FileOperation::writeAtomically), 2);
  EXPECT_EQ(platform.files.calls[platform.files.calls.size() - 1].operation, FileOperation::remove);
}

}  // namespace
}  // namespace corvane
