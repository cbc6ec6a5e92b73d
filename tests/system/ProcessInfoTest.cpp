#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/linux/LinuxProcessInfo.h"
#include "tests/fakes/FakeProcessInfo.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tests/system/ScopedVariable.h"

namespace corvane {
namespace {

TEST(ProcessInfo, OwnProcessIsAlive) {
  LinuxProcessInfo real;
  FakeProcessInfo fake;
  for (ProcessInfo* process : std::initializer_list<ProcessInfo*>{&real, &fake}) {
    EXPECT_EQ(process->liveness(process->processId()), ProcessInfo::Liveness::alive);
    EXPECT_FALSE(process->processName().empty());
    EXPECT_FALSE(process->userName().empty());
    EXPECT_FALSE(process->fullUserName().empty());
  }
}

TEST(ProcessInfo, AnEndedProcessIsGone) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  LinuxProcessInfo process;
  EXPECT_EQ(process.liveness(child), ProcessInfo::Liveness::alive);  // ended perhaps, but not yet waited for
  ASSERT_EQ(waitpid(child, nullptr, 0), child);
  EXPECT_EQ(process.liveness(child), ProcessInfo::Liveness::gone);
}

TEST(ProcessInfo, NamesAreTheSystems) {
  LinuxProcessInfo process;
  char host[256] = {};
  ASSERT_EQ(gethostname(host, sizeof host - 1), 0);
  EXPECT_EQ(process.hostName(), host);
  EXPECT_EQ(process.processId(), getpid());
  EXPECT_EQ(process.processName(), std::filesystem::read_symlink("/proc/self/exe").filename().string());
  const passwd* entry = getpwuid(geteuid());
  EXPECT_EQ(process.userName(), entry ? entry->pw_name : std::to_string(geteuid()));
}

TEST(ProcessInfo, FullNameComesFromTheAccountsComment) {
  struct Row {
    const char* comment;
    const char* expected;
  };
  const Row rows[] = {
      {"Ada Lovelace", "Ada Lovelace"},
      {"Ada Lovelace,Room 1,555,", "Ada Lovelace"},
      {"& Lovelace", "Ada Lovelace"},
      {"Dr. &,x & y", "Dr. Ada"},
      {"", "ada"},
      {",Room 1", "ada"},
  };
  for (const Row& row : rows) EXPECT_EQ(fullNameFromComment(row.comment, "ada"), row.expected) << row.comment;
}

TEST(ProcessInfo, HomeDirectoryIsTheVariablesElseTheAccounts) {
  LinuxProcessInfo process;
  {
    const ScopedVariable home("HOME", "/some/home//");
    EXPECT_EQ(process.homeDirectory(), "/some/home");
  }
  {
    const ScopedVariable home("HOME", "/");
    EXPECT_EQ(process.homeDirectory(), "/");
  }
  const passwd* entry = getpwuid(geteuid());
  ASSERT_TRUE(entry);
  for (const std::optional<std::string>& unset :
       {std::optional<std::string>(), std::optional<std::string>(""), std::optional<std::string>("home/ada"),
        std::optional<std::string>(".")}) {  // a relative path names no home
    const ScopedVariable home("HOME", unset);
    EXPECT_EQ(process.homeDirectory(), entry->pw_dir);
  }
}

TEST(ProcessInfo, ConfigurationDirectoryIsTheVariablesElseInTheHome) {
  LinuxProcessInfo process;
  const ScopedVariable home("HOME", "/some/home");
  for (const auto& [variable, expected] :
       std::initializer_list<std::pair<std::optional<std::string>, const char*>>{
           {"/some/where/", "/some/where"},
           {std::nullopt, "/some/home/.config"},
           {"", "/some/home/.config"},
           {"relative", "/some/home/.config"}}) {
    const ScopedVariable configuration("XDG_CONFIG_HOME", variable);
    EXPECT_EQ(process.configurationDirectory(), expected);
  }
}

class TemporaryDirectoryRules : public testing::Test {
 protected:
  // What is answered with these variables; the exception's text when one is raised.
  std::string answer(const std::optional<std::string>& tmpdir, const std::optional<std::string>& runtime) {
    const ScopedVariable first("TMPDIR", tmpdir);
    const ScopedVariable second("XDG_RUNTIME_DIR", runtime);
    try {
      return LinuxProcessInfo(shared.path()).temporaryDirectory();
    } catch (const PlatformException& exception) {
      EXPECT_EQ(exception.name(), NSObjectNotAvailableException);
      return exception.reason();
    }
  }

  TemporaryDirectory one, two, shared;
  std::string own = shared / ("corvane-" + std::to_string(geteuid()));
};

TEST_F(TemporaryDirectoryRules, VariablesCountInTheirOrder) {
  EXPECT_EQ(answer(one.path() + "/", two.path()), one.path());
  EXPECT_EQ(answer(std::nullopt, two.path()), two.path());
  EXPECT_EQ(answer("", two.path()), two.path());
  EXPECT_EQ(answer(one / "none", two.path()), two.path()) << "a directory that does not exist";
  EXPECT_EQ(answer("relative", two.path()), two.path());
  EXPECT_FALSE(std::filesystem::exists(own));
}

TEST_F(TemporaryDirectoryRules, IsMadeForTheUserAlone) {
  const mode_t before = umask(0277);
  EXPECT_EQ(answer(std::nullopt, std::nullopt), own);
  umask(before);
  struct stat status {};
  ASSERT_EQ(lstat(own.c_str(), &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777, 0700u);
  EXPECT_EQ(answer(std::nullopt, std::nullopt), own) << "a second time";
}

TEST_F(TemporaryDirectoryRules, AnOwnDirectoryOpenToOthersIsClosed) {
  ASSERT_EQ(mkdir(own.c_str(), 0777), 0);
  ASSERT_EQ(chmod(own.c_str(), 0777), 0);
  EXPECT_EQ(answer(std::nullopt, std::nullopt), own);
  struct stat status {};
  ASSERT_EQ(lstat(own.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700u);
}

TEST_F(TemporaryDirectoryRules, ALinkIsRefused) {
  ASSERT_EQ(symlink(one.path().c_str(), own.c_str()), 0);
  EXPECT_EQ(answer(std::nullopt, std::nullopt),
            "Can't use temporary directory " + own + ": it is not a directory");
}

TEST_F(TemporaryDirectoryRules, WhatCannotBeMadeIsRefused) {
  std::filesystem::remove(shared.path());
  EXPECT_EQ(answer(std::nullopt, std::nullopt),
            "Can't use temporary directory " + own + ": No such file or directory");
}

}  // namespace
}  // namespace corvane
