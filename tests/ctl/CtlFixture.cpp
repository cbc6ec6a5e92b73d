#include "tests/ctl/CtlFixture.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CorvaneSyncClient/platform/loomer/store/Database.h"

namespace corvane {

namespace {

// Runs a program to its end and answers its exit status; -1 when a signal ended it. It is not forked: under
// AddressSanitizer that copies the page tables of all that it has mapped.
int runProgram(const std::vector<std::string>& words, const std::map<std::string, std::string>& environment,
               const std::string& in, const std::string& out, const std::string& err) {
  const auto pointersTo = [](const std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (const std::string& each : texts) pointers.push_back(const_cast<char*>(each.c_str()));
    pointers.push_back(nullptr);
    return pointers;
  };
  std::vector<std::string> variables;
  for (char** each = environ; *each; ++each) {
    const std::string variable = *each;
    if (!environment.contains(variable.substr(0, variable.find('=')))) variables.push_back(variable);
  }
  for (const auto& [name, value] : environment) variables.push_back(name + '=' + value);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDIN_FILENO, in.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t child = -1;
  const int failure = posix_spawnp(&child, words[0].c_str(), &files, nullptr, pointersTo(words).data(),
                                   pointersTo(variables).data());
  posix_spawn_file_actions_destroy(&files);
  int status = 0;
  if (failure != 0 || waitpid(child, &status, 0) != child) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

CtlTest::CtlTest() : home(platform.process.home) {
  setenv("LC_ALL", "C", 1);  // texts are expected in English, whatever the developer speaks
}

CtlTest::Run CtlTest::ctl(const std::vector<std::string>& arguments, const std::string& input) {
  writeFile(platform.directory / "in", input);
  std::vector<std::string> words{CORVANE_LOOMERCTL};
  words.insert(words.end(), arguments.begin(), arguments.end());
  auto variables = environment;
  variables["HOME"] = home;
  variables["XDG_CONFIG_HOME"] = home + "/.config";
  Run run;
  run.status = runProgram(words, variables, platform.directory / "in", platform.directory / "out",
                          platform.directory / "err");
  run.out = contents(platform.directory / "out");
  run.err = contents(platform.directory / "err");
  return run;
}

std::string CtlTest::json(const std::vector<std::string>& arguments, const std::string& expression,
                          int status) {
  std::vector<std::string> words = arguments;
  words.push_back("--json");
  const Run run = ctl(words);
  EXPECT_EQ(run.status, status) << run.err;
  writeFile(platform.directory / "json", run.out);
  const std::string script = "import json, sys\nd = json.load(sys.stdin)\nprint(" + expression + ", end='')";
  const int python =
      runProgram({"python3", "-c", script}, {{"PYTHONIOENCODING", "utf-8"}}, platform.directory / "json",
                 platform.directory / "out", platform.directory / "err");
  EXPECT_EQ(python, 0) << contents(platform.directory / "err") << run.out;
  return contents(platform.directory / "out");
}

void CtlTest::breakCopy(const std::string& sql) {
  static constexpr const char* kLoomer = "/Library/Application Support/Loomer";
  home = platform.directory / ("broken" + std::to_string(number("SELECT abs(random())")));
  platform.makeDirectories(home + kLoomer);
  store().database().execute("VACUUM INTO '" + ctlStorePath() + "'", "copy");
  loomer::Database database(ctlStorePath());
  database.execute(
      "PRAGMA foreign_keys = OFF; PRAGMA ignore_check_constraints = ON; DROP INDEX siblings;" + sql, "break");
}

void CtlTest::useEmptyHome() {
  home = platform.directory / "empty";
  platform.makeDirectories(home);
}

void CtlTest::seed() {
  a = makeClient("a");
  b = makeClient("b");
  const std::string bar = a->addSpecial("BookmarksBar");
  const std::string news = a->addFolder(bar, "News");
  a->addBookmark(news, "Daily", "http://d/");
  a->addBookmark(news, "Weekly", "http://w/");
  a->addBookmark(bar, "Shop", "http://s/");
  a->addBookmark("", "Zoo", "http://z/");
  settle({a.get(), b.get()});
}

std::string CtlTest::numberOf(const std::string& title) {
  loomer::Statement query = store().database().query(
      "SELECT r.id FROM records r JOIN contents c ON c.id = r.content WHERE c.name = ?", "test");
  EXPECT_TRUE(query.open(title).next()) << title;
  return std::to_string(query.integer(0));
}

void CtlTest::writeFile(const std::string& path, const std::string& bytes) {
  ASSERT_FALSE(platform.realFiles.write(path, bytes)) << path;
}

}  // namespace corvane
