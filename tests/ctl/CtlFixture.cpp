#include "tests/ctl/CtlFixture.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CorvaneSyncClient/platform/loomer/store/Database.h"

namespace corvane {

namespace {

// Runs a program to its end and answers its exit status; -1 when a signal ended it.
int runProgram(const std::vector<std::string>& words, const std::map<std::string, std::string>& environment,
               const std::string& in, const std::string& out, const std::string& err) {
  std::vector<char*> arguments;
  for (const std::string& each : words) arguments.push_back(const_cast<char*>(each.c_str()));
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    const bool redirected = dup2(open(in.c_str(), O_RDONLY), STDIN_FILENO) >= 0 &&
                            dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO) >= 0 &&
                            dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO) >= 0;
    if (redirected) execvp(arguments[0], arguments.data());
    _exit(127);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) return -1;
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
