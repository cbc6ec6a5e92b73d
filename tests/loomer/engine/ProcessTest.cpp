#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CorvaneSyncClient/platform/loomer/store/Migrations.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tests/loomer/engine/EngineFixture.h"

namespace corvane {
namespace {

// Two-way signals between a test and the process that it forks.
class PipeSignal {
 public:
  PipeSignal() { EXPECT_EQ(pipe(_ends), 0); }
  ~PipeSignal() {
    close(_ends[0]);
    close(_ends[1]);
  }
  void send() { ASSERT_EQ(write(_ends[1], "x", 1), 1); }
  void await() {
    char byte;
    ASSERT_EQ(read(_ends[0], &byte, 1), 1);
  }

 private:
  int _ends[2];
};

class ProcessTest : public EngineTest {
 protected:
  // Runs `body` in another process with an engine of its own; its answer is the exit status.
  template <typename Body>
  pid_t fork(const Body& body) {
    close();  // connections must not be carried into another process
    const pid_t child = ::fork();
    if (child == 0) {
      reopen();
      _exit(body());
    }
    return child;
  }
  static int statusOf(pid_t child) {
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }
};

TEST_F(ProcessTest, OneSessionAtATimeForOneStoreAcrossProcesses) {
  PipeSignal inside, leave;
  const auto a = makeClient("a"), b = makeClient("b");
  a->addBookmark("", "A", "http://a/");
  const pid_t child = fork([&] {
    a->onCall = [&](const std::string& call) {
      if (call != "did pull") return;
      inside.send();
      leave.await();
    };
    return a->sync().empty() ? 0 : 1;
  });
  inside.await();
  reopen();
  manager().clientWithIdentifier("a");  // reading does not wait
  bool released = false;
  platform.clock.onSleep = [&] {
    if (platform.clock.sleeps.size() < 3 || released) return;
    released = true;
    leave.send();
    EXPECT_EQ(statusOf(child), 0);
  };
  EXPECT_EQ(b->sync(), "");
  EXPECT_GE(platform.clock.sleeps.size(), 3u);
  EXPECT_EQ(b->text(), "A@http://a/") << "what the other session committed is seen";
}

// Keeps the store from being opened, as another process does while it makes it.
class OpeningElsewhere {
 public:
  explicit OpeningElsewhere(const std::string& storePath)
      : _lock(open((storePath + "-lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    EXPECT_EQ(flock(_lock.number(), LOCK_EX | LOCK_NB), 0);
  }
  void end() { _lock = FileDescriptor(); }

 private:
  FileDescriptor _lock;
};

TEST_F(ProcessTest, AStoreThatAnotherProcessIsHalfwayThroughMakingIsWaitedFor) {
  close();
  for (const char* suffix : {"", "-wal", "-shm"}) platform.realFiles.remove(storePath + suffix);
  platform.realFiles.write(storePath, "");
  const auto markAs = [this](std::int64_t application) {
    loomer::Database(storePath).execute("PRAGMA application_id = " + std::to_string(application), "test");
  };
  markAs(loomer::kStoreApplicationId);  // whose version is still 0, which no store of the engine has
  OpeningElsewhere elsewhere(storePath);
  platform.clock.onSleep = [&] {
    if (platform.clock.sleeps.size() != 3) return;
    markAs(0);
    elsewhere.end();
  };
  reopen();
  EXPECT_EQ(platform.clock.sleeps.size(), 3u);
  EXPECT_EQ(number("PRAGMA user_version"), static_cast<std::int64_t>(loomer::storeMigrations().size()));
}

TEST_F(ProcessTest, AStoreThatSomebodyKeepsFromBeingOpenedIsGivenUpAfterAMinute) {
  close();
  const OpeningElsewhere elsewhere(storePath);
  const Date began = platform.clock.now();
  try {
    loomer::EmbeddedManager refused(storePath);
    ADD_FAILURE() << "opened";
  } catch (const loomer::LoomerStoreException& exception) {
    EXPECT_EQ(exception.name(), "LoomerStoreException");
    EXPECT_THAT(exception.reason(), testing::HasSubstr(storePath));
    EXPECT_THAT(exception.reason(), testing::HasSubstr("opening it for more than a minute"));
  }
  EXPECT_NEAR(platform.clock.now().seconds - began.seconds, 60.0, 0.2);
}

class KilledProcess : public ProcessTest, public testing::WithParamInterface<const char*> {};

TEST_P(KilledProcess, ThenSyncingOnEndsAsIfItHadNotBeenKilled) {
  SCOPED_TRACE(GetParam());
  const auto a = makeClient("a"), b = makeClient("b");
  const std::string folder = a->addFolder("", "F");
  a->addBookmark(folder, "A", "http://a/");
  a->addBookmark("", "B", "http://b/");
  ASSERT_EQ(a->sync(), "");
  b->addBookmark("", "C", "http://c/");
  const pid_t child = fork([&] {
    b->onCall = [](const std::string& call) {
      if (call == GetParam()) kill(getpid(), SIGKILL);
    };
    b->sync();
    return 0;
  });
  const int status = statusOf(child);
  ASSERT_TRUE(WIFSIGNALED(status)) << "the session never came to " << GetParam();
  reopen();
  EXPECT_EQ(number("SELECT count(*) FROM records WHERE id > 0"), 3)
      << "nothing of the killed session is left";
  settle({b.get(), a.get()});
  EXPECT_EQ(a->text(), "F(A@http://a/) B@http://b/ C@http://c/");
  EXPECT_EQ(b->text(), a->text());
}

INSTANTIATE_TEST_SUITE_P(AtEachStep, KilledProcess,
                         testing::Values("did register", "mode bookmarks", "begin timeout", "records folders",
                                         "records bookmarks", "add F", "add A", "did pull", "will finish"));

TEST_F(ProcessTest, DirectoryAndFilesAreTheUsersOwnWhateverTheUmask) {
  const mode_t before = umask(0);
  platform.process.home = platform.directory / "other home";
  const std::string path = loomer::storePathForHome(platform.process.home);
  {
    loomer::EmbeddedManager other(path);
    other.registerClientWithIdentifier("a", descriptionPath);
    EXPECT_EQ(modeOf(path), 0600u);
    EXPECT_EQ(modeOf(path + "-wal"), 0600u);
    EXPECT_EQ(modeOf(path + "-shm"), 0600u);
  }
  umask(before);
  EXPECT_EQ(modeOf(path.substr(0, path.rfind('/'))), 0700u);
}

TEST_F(ProcessTest, ModesThatWereOpenedAreClosedAgain) {
  close();
  const std::string directory = storePath.substr(0, storePath.rfind('/'));
  ASSERT_EQ(chmod(directory.c_str(), 0755), 0);
  ASSERT_EQ(chmod(storePath.c_str(), 0644), 0);
  reopen();
  EXPECT_EQ(modeOf(directory), 0700u);
  EXPECT_EQ(modeOf(storePath), 0600u);
}

TEST_F(ProcessTest, StoreThatTheUserMayNotReachIsRefusedWithItsPath) {
  close();
  const std::string directory = storePath.substr(0, storePath.rfind('/'));
  const std::string above = directory.substr(0, directory.rfind('/'));
  ASSERT_EQ(chmod(above.c_str(), 0), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (geteuid() == 0 && setuid(65534) != 0) _exit(3);  // root may reach everything
    try {
      loomer::EmbeddedManager refused(storePath);
      _exit(1);
    } catch (const loomer::LoomerStoreException& exception) {
      const bool named = exception.name() == "LoomerStoreException" &&
                         exception.reason().find(storePath) != std::string::npos &&
                         exception.reason().find("ermission") != std::string::npos;
      _exit(named ? 0 : 2);
    }
  }
  const int status = statusOf(child);
  EXPECT_EQ(chmod(above.c_str(), 0700), 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

}  // namespace
}  // namespace corvane
