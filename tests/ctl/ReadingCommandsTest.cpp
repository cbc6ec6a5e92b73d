// The commands that read.

#include <gmock/gmock.h>

#include <cstdlib>
#include <sstream>

#include "CorvaneSyncClient/platform/loomer/store/KeptFiles.h"
#include "tests/ctl/CtlFixture.h"

namespace corvane {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class ReadingTest : public CtlTest {};

TEST_F(ReadingTest, MissingStoreIsRefusedByEveryCommandButImportAndNotMade) {
  useEmptyHome();
  const std::vector<std::vector<std::string>> commands = {
      {"status"},    {"watch"},        {"clients"},    {"tree"},        {"sessions"},
      {"changes"},   {"show", "1"},    {"check"},      {"plan", "a"},   {"approve", "a"},
      {"undo", "1"}, {"restore", "a"}, {"reset", "a"}, {"export", "-"}, {"report", "-"}};
  for (const auto& each : commands) {
    const Run run = ctl(each);
    EXPECT_EQ(run.status, 1) << each[0];
    EXPECT_THAT(run.err, HasSubstr("There is no store yet")) << each[0];
    EXPECT_EQ(run.out, "") << each[0];
  }
  EXPECT_EQ(::access((home + "/Library").c_str(), F_OK), -1) << "nothing was made";
}

TEST_F(ReadingTest, EmptyFileIsNoStoreYet) {
  useEmptyHome();
  platform.makeDirectories(home + "/Library/Application Support/Loomer");
  writeFile(ctlStorePath(), "");
  EXPECT_EQ(ctl({"status"}).status, 1);
  EXPECT_EQ(contents(ctlStorePath()), "");
}

TEST_F(ReadingTest, GarbageIsADamagedStore) {
  useEmptyHome();
  platform.makeDirectories(home + "/Library/Application Support/Loomer");
  const std::string garbage(8192, 'x');
  writeFile(ctlStorePath(), garbage);
  for (const char* command : {"status", "tree", "check"}) {
    const Run run = ctl({command});
    EXPECT_EQ(run.status, 3) << command;
    EXPECT_THAT(run.err, AllOf(HasSubstr(ctlStorePath()), HasSubstr("Put a backup of it in its place")));
  }
  EXPECT_EQ(contents(ctlStorePath()), garbage) << "it is left as it is";
}

TEST_F(ReadingTest, NewerStoreIsRefusedAndNotCalledDamaged) {
  seed();
  breakCopy("PRAGMA user_version = 99");
  const Run run = ctl({"status"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, HasSubstr("version 99"));
}

TEST_F(ReadingTest, StatusCountsAndNamesTheLastSession) {
  seed();
  const Run run = ctl({"status"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out,
              AllOf(HasSubstr(storePath), HasSubstr("4 bookmarks in 2 folders"), HasSubstr("0 deletions")));
  EXPECT_EQ(
      json({"status"}, "d['bookmarks'], d['folders'], d['clients'], d['deletedRemembered'], d['waiting']"),
      "4 2 2 0 []");
  EXPECT_THAT(run.out, AllOf(HasSubstr("\na "), HasSubstr("\nb "))) << "both are called Corvane";
  EXPECT_EQ(
      json({"status"}, "d['bytes'] > 4096, d['lastSession']['client'] in 'ab', d['lastSession']['name']"),
      "True True Corvane");
}

TEST_F(ReadingTest, StatusShowsTheFilesThatWereKeptBecauseOfEntriesThatWereLeftOut) {
  seed();
  const std::string file = platform.directory / "Old.plist";
  platform.realFiles.write(file, "old");
  const std::string first = loomer::KeptFiles(storePath, "a").keep(file, 1, "d1");
  const std::string second = loomer::KeptFiles(storePath, "a").keep(file, 1200, "d2");
  const Run run = ctl({"status"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out,
              AllOf(HasSubstr("Corvane (a): 1 entry that"), HasSubstr("is kept in " + first),
                    HasSubstr("Corvane (a): 1,200 entries that"), HasSubstr("is kept in " + second)));
  EXPECT_EQ(json({"status"}, "[(k['client'], k['entriesLeftOut'], k['path']) for k in d['keptFiles']]"),
            "[('a', 1200, '" + second + "'), ('a', 1, '" + first + "')]");
  EXPECT_EQ(contents(second), "old");
}

TEST_F(ReadingTest, TimesAreInTheLocalZoneForPeopleAndInUtcForPrograms) {
  seed();
  environment["TZ"] = "AAA-5:30";
  EXPECT_THAT(ctl({"status"}).out, HasSubstr(" +0530 "));
  EXPECT_THAT(json({"status"}, "d['lastSession']['ended']"), MatchesRegex("....-..-..T..:..:..Z"));
}

TEST_F(ReadingTest, ClientsTellWhatTheirNextSessionWaitsFor) {
  seed();
  a->addBookmark("", "New", "http://n/");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(json({"clients"}, "[(c['identifier'], c['held'], c['changesMayWait']) for c in d]"),
            "[('a', 7, False), ('b', 6, True)]");
  ASSERT_EQ(ctl({"reset", "b"}).status, 0);
  EXPECT_EQ(json({"clients"}, "[c['resetPending'] for c in d]"), "[False, True]");
  EXPECT_EQ(json({"clients"}, "d[0]['name'], d[0]['tool'], d[0]['image']"),
            "Corvane ../Linux/corvanetool Corvane.png");
  const std::string text = ctl({"clients"}).out;
  EXPECT_THAT(text, AllOf(HasSubstr("up to date"), HasSubstr("will be replaced")));
  EXPECT_THAT(ctl({"status"}).out, HasSubstr("Corvane (b): will be replaced"));
}

TEST_F(ReadingTest, TreeShowsFoldersBeforeTheirContentsInOrder) {
  seed();
  EXPECT_EQ(json({"tree"}, "[(r['depth'], r['title']) for r in d]"),
            "[(0, 'BookmarksBar'), (1, 'News'), (2, 'Daily'), (2, 'Weekly'), (1, 'Shop'), (0, 'Zoo')]");
  EXPECT_EQ(
      json({"tree"},
           "d[0]['special'], d[2]['url'], d[2]['parent'] == d[1]['record'], d[0]['kind'], d[2]['kind']"),
      "True http://d/ True folder bookmark");
  const std::string text = ctl({"tree"}).out;
  EXPECT_THAT(text, HasSubstr("  BookmarksBar/ (special)\n"));
  EXPECT_THAT(text, HasSubstr("      Daily  http://d/\n"));
  EXPECT_THAT(text, Not(HasSubstr("\x1b["))) << "colours only on a terminal";
}

TEST_F(ReadingTest, TreeOfOneFolder) {
  seed();
  EXPECT_EQ(json({"tree", "--record", numberOf("News")}, "[(r['depth'], r['title']) for r in d]"),
            "[(0, 'Daily'), (0, 'Weekly')]");
  EXPECT_EQ(ctl({"tree", "--record", "999"}).status, 1);
  const Run bookmark = ctl({"tree", "--record=" + numberOf("Zoo")});
  EXPECT_EQ(bookmark.status, 1);
  EXPECT_THAT(bookmark.err, HasSubstr("is a bookmark"));
}

TEST_F(ReadingTest, DeepTreesNeedNoStackAndNoSquareOfTheirDepth) {
  seed();
  // A chain of 20,000 folders, made by hand: a client would need a session of its own for it.
  breakCopy(
      "WITH RECURSIVE n(i) AS (SELECT 1000 UNION ALL SELECT i + 1 FROM n WHERE i < 20999)"
      " INSERT INTO records(id, entity, parent, place, content, revision)"
      " SELECT i, 0, CASE i WHEN 1000 THEN 0 ELSE i - 1 END, -i, (SELECT min(id) FROM contents), 1 FROM n;"
      "CREATE UNIQUE INDEX siblings ON records(parent, place)");
  EXPECT_EQ(json({"tree"}, "len(d), d[19999]['depth']"), "20006 19999");
  EXPECT_LT(ctl({"tree"}).out.size(), 20006u * 110);
  EXPECT_THAT(ctl({"tree"}).out, HasSubstr("[19999] "));
  const Run exported = ctl({"export", "-"});
  EXPECT_EQ(exported.status, 0);
  EXPECT_LT(exported.out.size(), 20006u * 400);
}

TEST_F(ReadingTest, SessionsNewestFirstAndLimited) {
  seed();
  a->addBookmark("", "New", "http://n/");
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(json({"sessions", "--limit", "1"}, "[(s['client'], s['kind'], s['changed']) for s in d]"),
            "[('a', 'slow', 1)]");
  EXPECT_EQ(
      json({"sessions"}, "[s['session'] for s in d] == sorted([s['session'] for s in d], reverse=True)"),
      "True");
  EXPECT_EQ(json({"sessions"}, "d[-1]['client'], d[-1]['kind'], d[-1]['taken'], d[-1]['changed']"),
            "a refresh 6 6");
  EXPECT_THAT(ctl({"sessions"}).out,
              AllOf(HasSubstr("PUSHED"), HasSubstr("PULLED"), HasSubstr("CONFLICTS"), HasSubstr("slow")));
}

TEST_F(ReadingTest, ChangesShowBeforeAndAfterOfEachAttribute) {
  seed();
  const std::string daily = a->find("Daily");
  a->rename(daily, "Daily \"2\"");
  a->readdress(daily, "http://d2/");
  a->move(a->find("Shop"), "");
  a->remove(a->find("Zoo"));
  ASSERT_EQ(a->sync(), "");
  const std::string session = std::to_string(lastSession());
  const std::string text = ctl({"changes", "--session", session}).out;
  EXPECT_THAT(text, HasSubstr("title: \"Daily\" → \"Daily \"2\"\"\n"));
  EXPECT_THAT(text, HasSubstr("address: \"http://d/\" → \"http://d2/\"\n"));
  EXPECT_THAT(text, HasSubstr("\"BookmarksBar\" → the root\n"));
  EXPECT_THAT(text, HasSubstr("- deleted  "));
  EXPECT_EQ(json({"changes", "--session", session}, "sorted(c['type'] for c in d)"),
            "['changed', 'changed', 'deleted']");
  EXPECT_EQ(json({"changes", "--record", numberOf("Daily \"2\"")},
                 "[(c['type'], c['before'] and c['before']['title'], c['after']['title']) for c in d]"),
            "[('changed', 'Daily', 'Daily \"2\"'), ('added', None, 'Daily')]");
  EXPECT_EQ(json({"changes", "--limit", "2"}, "len(d)"), "2");
}

TEST_F(ReadingTest, ChangesFoldLongListsOfAdditionsUnlessTheyAreAskedFor) {
  a = makeClient("a");
  const std::string folder = a->addFolder("", "Many");
  for (int i = 0; i < 12; ++i) a->addBookmark(folder, "B" + std::to_string(i), "http://b/");
  ASSERT_EQ(a->sync(), "");
  const std::string session = std::to_string(lastSession());
  const std::string folded = ctl({"changes"}).out;
  EXPECT_THAT(folded, AllOf(HasSubstr("12 bookmarks and 1 folder added"),
                            HasSubstr("`loomerctl changes --session " + session + "`")));
  EXPECT_THAT(folded, Not(HasSubstr("\"B11\"")));
  EXPECT_THAT(ctl({"changes", "--session", session}).out, HasSubstr("\"B11\""));
  EXPECT_THAT(ctl({"changes", "--record", numberOf("B11")}).out, HasSubstr("\"B11\""));
  EXPECT_EQ(json({"changes"}, "len(d)"), "13");
  a->rename(a->find("B0"), "Other");
  for (int i = 0; i < 12; ++i) a->addBookmark(folder, "C" + std::to_string(i), "http://c/");
  ASSERT_EQ(a->sync(), "");
  EXPECT_THAT(ctl({"changes"}).out, HasSubstr("\"C11\"")) << "it did something else as well";
}

TEST_F(ReadingTest, SessionsCountConflicts) {
  seed();
  a->rename(a->find("Zoo"), "Zoo A");
  b->rename(b->find("Zoo"), "Zoo B");
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(json({"sessions", "--limit", "2"}, "[s['conflicts'] for s in d]"), "[1, 0]");
}

TEST_F(ReadingTest, ChangesNameWhatLostAConflict) {
  seed();
  a->rename(a->find("Zoo"), "Zoo A");
  b->rename(b->find("Zoo"), "Zoo B");
  ASSERT_EQ(a->sync(), "");
  ASSERT_EQ(b->sync(), "");
  EXPECT_EQ(json({"changes", "--session", std::to_string(lastSession())},
                 "[(c['attribute'], c['clientValue'], c['truthValue'], c['clientWon']) for c in d"
                 " if c['type'] == 'conflict']"),
            "[('name', 'Zoo B', 'Zoo A', True)]");
  EXPECT_THAT(ctl({"changes"}).out, HasSubstr("\"Zoo B\" of the client stood against \"Zoo A\""));
}

TEST_F(ReadingTest, FiltersThatFindNothingExit1) {
  seed();
  EXPECT_EQ(json({"changes", "--session", "99"}, "d", 1), "[]");
  EXPECT_EQ(ctl({"changes", "--record", "99"}).status, 1);
}

TEST_F(ReadingTest, ShowTellsWhereARecordIsWhoHoldsItAndItsHistory) {
  seed();
  a->rename(a->find("Daily"), "Daily 2");
  ASSERT_EQ(a->sync(), "");
  const std::string record = numberOf("Daily 2");
  EXPECT_EQ(json({"show", record}, "d['title'], d['path'], d['deleted'], len(d['globalIdentifier'])"),
            "Daily 2 ['BookmarksBar', 'News'] False 36");
  EXPECT_EQ(json({"show", "#" + record}, "[(h['client'], h['held']) for h in d['holders']]"),
            "[('a', True), ('b', True)]");
  EXPECT_EQ(json({"show", record}, "[h['after']['title'] for h in d['history']]"), "['Daily 2', 'Daily']");
  EXPECT_THAT(ctl({"show", record}).out, HasSubstr("/BookmarksBar/News/"));
}

TEST_F(ReadingTest, ShowTellsADeletedRecordFromAnUnknownOne) {
  seed();
  const std::string record = numberOf("Zoo");
  a->remove(a->find("Zoo"));
  ASSERT_EQ(a->sync(), "");
  EXPECT_EQ(json({"show", record}, "d['deleted'], d['history'][0]['after']"), "True None");
  EXPECT_EQ(ctl({"show", "999"}).status, 1);
  EXPECT_EQ(ctl({"show", "x"}).status, 1);
}

TEST_F(ReadingTest, TextFromClientsCannotDriveTheTerminalAndIsValidJson) {
  a = makeClient("a");
  const std::string nasty = "\x1b[31mred\n\"quoted\\ \xE2\x80\xAE rtl X \xC3\xBC \xF0\x9F\x98\x80";
  a->addBookmark("", nasty, "http://n/");
  ASSERT_EQ(a->sync(), "");
  // An older store may hold a surrogate that stands alone.
  store().database().execute("UPDATE contents SET name = replace(name, 'X', CAST(x'EDA080' AS TEXT))",
                             "write a surrogate");
  const std::string text = ctl({"tree"}).out;
  EXPECT_THAT(text, Not(HasSubstr("\x1b")));
  EXPECT_THAT(text, Not(HasSubstr("\xE2\x80\xAE")));
  EXPECT_THAT(text,
              HasSubstr("\xE2\x90\x9B[31mred\xE2\x90\x8A\"quoted\\ \xEF\xBF\xBD rtl \xEF\xBF\xBD \xC3\xBC"));
  EXPECT_EQ(json({"tree"}, "ascii(d[0]['title'])"),
            "'\\x1b[31mred\\n\"quoted\\\\ \\u202e rtl \\ud800 \\xfc \\U0001f600'");
}

TEST_F(ReadingTest, ReadersDoNotWaitForASession) {
  seed();
  ASSERT_TRUE(store().begin(0));
  store().database().execute("DELETE FROM losses; UPDATE truth SET revision = revision + 1",
                             "as a session would");
  EXPECT_EQ(json({"tree"}, "len(d)"), "6");
  EXPECT_EQ(ctl({"check"}).status, 0);
  store().database().rollback();
}

TEST_F(ReadingTest, ReadingWritesNothing) {
  seed();
  close();
  const std::string before = contents(storePath);
  for (const char* command : {"status", "clients", "tree", "sessions", "changes", "check"}) {
    EXPECT_EQ(ctl({command}).status, 0) << command;
  }
  EXPECT_EQ(contents(storePath), before);
}

TEST_F(ReadingTest, ClosedPipeEndsTheCommandQuietly) {
  seed();
  breakCopy(
      "WITH RECURSIVE n(i) AS (SELECT 1000 UNION ALL SELECT i + 1 FROM n WHERE i < 50000)"
      " INSERT INTO records(id, entity, parent, place, content, revision)"
      " SELECT i, 1, 0, -i, (SELECT max(id) FROM contents), 1 FROM n");
  const std::string errors = platform.directory / "pipe-errors";
  const std::string command = "set -o pipefail; HOME='" + home + "' '" CORVANE_LOOMERCTL "' tree 2>'" +
                              errors + "' | head -n 1 >/dev/null";
  EXPECT_EQ(std::system(("bash -c \"" + command + '"').c_str()), 0);
  EXPECT_EQ(contents(errors), "");
}

TEST_F(ReadingTest, OutputThatCannotBeWrittenIsAnError) {
  seed();
  const std::string errors = platform.directory / "full-errors";
  const std::string command =
      "HOME='" + home + "' '" CORVANE_LOOMERCTL "' tree >/dev/full 2>'" + errors + "'";
  EXPECT_NE(std::system(command.c_str()), 0);
  EXPECT_THAT(contents(errors), HasSubstr("No space left on device"));
}

TEST_F(ReadingTest, ColoursOnATerminalUnlessUnwanted) {
  seed();
  const std::string typescript = platform.directory / "typescript";
  const auto onTerminal = [&](const std::string& variables) {
    const std::string command = "HOME='" + home + "' TERM=xterm " + variables +
                                " python3 -c \"import pty, sys; pty.spawn(['" CORVANE_LOOMERCTL
                                "', 'tree'])\" >'" +
                                typescript + "' </dev/null";
    EXPECT_EQ(std::system(command.c_str()), 0);
    return contents(typescript);
  };
  EXPECT_THAT(onTerminal(""), HasSubstr("\x1b[34mBookmarksBar/\x1b[0m"));
  EXPECT_THAT(onTerminal("NO_COLOR=1"), AllOf(HasSubstr("BookmarksBar/"), Not(HasSubstr("\x1b["))));
}

struct UsageRow {
  const char* phrase;
  std::vector<std::string> arguments;
  int status;
  const char* says;
};

TEST_F(ReadingTest, WrongUsageIsExplained) {
  const UsageRow wrong[] = {
      {"nothing", {}, 2, "usage: loomerctl COMMAND"},
      {"unknown command", {"frobnicate"}, 2, "there is no command \"frobnicate\". `loomerctl --help` shows"},
      {"unknown option", {"tree", "--all"}, 2, "tree has no option \"--all\". `loomerctl tree --help` shows"},
      {"an option of another command", {"status", "--force"}, 2, "status has no option \"--force\""},
      {"argument missing", {"show"}, 2, "show wants a RECORD"},
      {"one argument too many", {"show", "1", "2"}, 2, "does not know what to do with \"2\""},
      {"no number", {"sessions", "--limit", "many"}, 2, "--limit wants a number of at least 1"},
      {"limit 0", {"sessions", "--limit=0"}, 2, "--limit wants a number of at least 1"},
      {"number missing", {"sessions", "--limit"}, 2, "--limit wants a number after it"},
      {"value for a switch", {"status", "--json=yes"}, 2, "--json takes no value"},
      {"version of a command", {"status", "--version"}, 2, "status has no option \"--version\""},
      {"version and more", {"--version", "now"}, 2, "there is no command \"--version\""},
  };
  for (const UsageRow& row : wrong) {
    const Run run = ctl(row.arguments);
    EXPECT_EQ(run.status, row.status) << row.phrase;
    EXPECT_THAT(run.err, HasSubstr(row.says)) << row.phrase;
    EXPECT_EQ(run.out, "") << row.phrase;
  }
}

TEST_F(ReadingTest, EveryCommandHasHelpThatNeedsNoStore) {
  useEmptyHome();
  const Run all = ctl({"--help"});
  EXPECT_EQ(all.status, 0);
  for (const char* command : {"status", "clients", "tree", "sessions", "changes", "show", "check", "plan",
                              "approve", "undo", "restore", "reset", "export", "import"}) {
    EXPECT_THAT(all.out, HasSubstr(std::string("  ") + command));
    const Run run = ctl({command, "--help"});
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_THAT(run.out, HasSubstr(std::string("usage: loomerctl ") + command));
    EXPECT_THAT(run.out, HasSubstr("Exit status: 0 fine, 1 nothing found, refused or not well"));
  }
}

TEST_F(ReadingTest, VersionNeedsNoStore) {
  useEmptyHome();
  const Run run = ctl({"--version"});
  EXPECT_EQ(run.status, 0);
  EXPECT_THAT(run.out, MatchesRegex("loomerctl [0-9]+\\.[0-9]+\\.[0-9]+\n"));
  EXPECT_EQ(run.err, "");
}

TEST_F(ReadingTest, HelpFillsLinesOfEightyColumns) {
  for (const std::vector<std::string>& command : {std::vector<std::string>{},
                                                  {"tree"},
                                                  {"changes"},
                                                  {"check"},
                                                  {"restore"},
                                                  {"import"},
                                                  {"account", "set"},
                                                  {"account", "join"},
                                                  {"account", "passphrase"},
                                                  {"account", "remove-computer"},
                                                  {"account", "remove"}}) {
    std::vector<std::string> arguments = command;
    arguments.push_back("--help");
    std::istringstream help(ctl(arguments).out);
    std::string before;
    bool isText = false;  // where the next line's first word has to be one that did not fit
    for (std::string line; std::getline(help, line); before = line) {
      EXPECT_LE(line.size(), 80u) << line;
      if (isText && !line.empty()) {
        EXPECT_GT(before.size() + 1 + line.substr(0, line.find(' ')).size(), 80u) << line;
      }
      if (line.starts_with("Options")) break;
      isText = !command.empty() && !line.empty() && !line.starts_with("usage: ");
    }
  }
}

}  // namespace
}  // namespace corvane
