// The account's file of an account at a place.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/account/DotPeltoSessionProxy.h"
#include "CorvaneSyncClient/platform/pelto/account/MembershipFile.h"
#include "CorvaneSyncClient/platform/pelto/account/UserAccount.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/pelto/account/AccountAtPlace.h"
#include "tests/pelto/account/ScriptedService.h"

namespace corvane::pelto {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kBookmarks = "com.keldra.Bookmarks";

void expectEqual(const Account& read, const Account& written) {
  EXPECT_EQ(read.url, written.url);
  EXPECT_EQ(read.computer, written.computer);
  EXPECT_EQ(read.membership.credentials.user, written.membership.credentials.user);
  EXPECT_EQ(read.membership.credentials.secret.view(), written.membership.credentials.secret.view());
  EXPECT_EQ(read.membership.account, written.membership.account);
  EXPECT_EQ(read.membership.generation, written.membership.generation);
  EXPECT_TRUE(*read.membership.key == *written.membership.key);
  EXPECT_EQ(read.membership.keys->publicKey(), written.membership.keys->publicKey());
  EXPECT_EQ(read.membership.name, written.membership.name);
  EXPECT_EQ(read.membership.enabled, written.membership.enabled);
  EXPECT_EQ(read.membership.newest, written.membership.newest);
  EXPECT_EQ(read.membership.left, written.membership.left);
  EXPECT_EQ(read.membership.former, written.membership.former);
}

class MembershipFileTest : public testing::Test {
 protected:
  // Why the account is not read; "read" when it is.
  std::string problemOf(std::string_view bytes) {
    EXPECT_FALSE(platform.realFiles.write(path, bytes));
    try {
      readAccount(path);
      return "read";
    } catch (const PlatformException& exception) {
      return exception.reason();
    }
  }

  StrictPlatform platform;
  ScriptedService service;
  const std::string path = userAccountPath();
  const Account account = accountAtPlace();
};

TEST_F(MembershipFileTest, ReadsBackAsItWasWritten) {
  writeAccount(path, account);
  expectEqual(*readAccount(path), account);
  Account first = account;
  first.membership.newest = {};
  first.membership.enabled = {};
  writeAccount(path, first);
  expectEqual(*readAccount(path), first);
}

TEST_F(MembershipFileTest, AFileOfTheFormBeforeIsReadAndWrittenInTheNewOne) {
  writeAccount(path, account);
  const std::string now(membershipFileOf(account).view());
  const std::size_t keysEnd = std::string("corvane account 3").size() + 64;
  Value entries = readPropertyList(std::string_view(now).substr(keysEnd + 2 + std::string("geheim").size()));
  Dictionary before = *entries.as<Dictionary>();
  before.set("Secret", "geheim");
  const std::string former = "corvane account 2" + now.substr(17, 64) + writeBinaryPropertyList(before);
  EXPECT_EQ(problemOf(former), "read");
  expectEqual(*readAccount(path), account);
  changeMembership(path, account, [](Membership&) {});
  std::string written;
  platform.realFiles.read(path, written);
  EXPECT_EQ(written, now);
}

TEST_F(MembershipFileTest, IsTheUsersAloneWhateverTheUmask) {
  const mode_t before = ::umask(0);
  writeAccount(path, account);
  ::umask(before);
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  EXPECT_THROW(readAccount(path), PlatformException);
}

TEST_F(MembershipFileTest, EveryCutOffFileIsRefusedWithItsPathAndNoSecret) {
  writeAccount(path, account);
  const std::string whole(membershipFileOf(account).view());
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_THAT(problemOf(whole.substr(0, size)), AllOf(HasSubstr(path), HasSubstr("loomerctl account set"),
                                                        Not(HasSubstr("geheim")), Not(HasSubstr("KKK"))))
        << size;
  }
  EXPECT_EQ(problemOf(whole), "read");
}

TEST_F(MembershipFileTest, FilesWithWrongEntriesAreRefused) {
  const struct {
    const char* what;
    std::function<void(Account&)> change;
  } cases[] = {
      {"no place", [](Account& each) { each.url.clear(); }},
      {"no computer", [](Account& each) { each.computer = "x"; }},
      {"no account", [](Account& each) { each.membership.account = "x"; }},
      {"generation 0", [](Account& each) { each.membership.generation = 0; }},
      {"no name", [](Account& each) { each.membership.name.clear(); }},
      {"a hash without a number", [](Account& each) { each.membership.newest.number = 0; }},
      {"a short hash", [](Account& each) { each.membership.newest.hash = "h"; }},
      {"a folder that is none", [](Account& each) { each.membership.left[".."] = ""; }},
      {"a commit that is none",
       [](Account& each) { each.membership.left[std::string(32, 'c')] = "../../7"; }},
      {"an earlier generation 0", [](Account& each) { each.membership.former[0].generation = 0; }},
      {"a box of another size", [](Account& each) { each.membership.former[0].keyBox.pop_back(); }},
      {"no last commit", [](Account& each) { each.membership.former[0].last.clear(); }},
      {"earlier generations in another order",
       [](Account& each) { std::swap(each.membership.former[0], each.membership.former[1]); }},
      {"a change to no generation", [](Account& each) { each.membership.former[0].change.generation = 0; }},
      {"a negative number",
       [](Account& each) {
         each.membership.newest = {-1, ""};
       }},
  };
  writeAccount(path, account);
  for (const auto& each : cases) {
    Account changed = account;
    each.change(changed);
    EXPECT_THAT(problemOf(membershipFileOf(changed).view()), HasSubstr("it is damaged")) << each.what;
  }
}

TEST_F(MembershipFileTest, AFailedWriteLeavesTheOldFile) {
  writeAccount(path, account);
  platform.files.failAlways(FileOperation::writeAtomically, std::errc::no_space_on_device);
  Account changed = account;
  changed.membership.generation = 4;
  EXPECT_THROW(writeAccount(path, changed), PlatformException);
  EXPECT_EQ(readAccount(path)->membership.generation, 3);
}

TEST_F(MembershipFileTest, TheMembershipOfAnotherAccountIsNotChanged) {
  const auto toFour = [](Membership& membership) { membership.generation = 4; };
  changeMembership(path, account, toFour);
  EXPECT_FALSE(readAccount(path)) << "no account comes of it";
  Account otherComputer = account, otherAccount = account;
  otherComputer.computer = "C0000000-0000-4000-8000-000000000002";
  otherAccount.membership.account = "A1C0B5A0-0F3D-4F7C-9B59-1F1B7F1F2A02";
  writeAccount(path, account);
  for (const Account& each : {otherComputer, otherAccount}) changeMembership(path, each, toFour);
  EXPECT_EQ(readAccount(path)->membership.generation, 3);
  changeMembership(path, account, toFour);
  EXPECT_EQ(readAccount(path)->membership.generation, 4);
}

// On a slow machine others may hold the file for longer than one waits.
void insistOnEnabling(const std::string& path, const Account& account, const std::string& dataClass) {
  for (bool isDone = false; !isDone;) {
    try {
      changeMembership(path, account, [&](Membership& membership) { membership.enabled.insert(dataClass); });
      isDone = true;
    } catch (const PlatformException&) {
    }
  }
}

TEST_F(MembershipFileTest, WhatSeveralProcessesChangeAtOnceIsAllKept) {
  constexpr int kProcesses = 4, kChanges = 15;
  writeAccount(path, account);
  std::vector<pid_t> processes;
  for (int process = 0; process < kProcesses; ++process) {
    processes.push_back(::fork());
    ASSERT_GE(processes.back(), 0);
    if (processes.back() != 0) continue;
    for (int i = 0; i < kChanges; ++i)
      insistOnEnabling(path, account, std::to_string(process) + "." + std::to_string(i));
    ::_exit(0);
  }
  for (const pid_t each : processes) {
    int status = -1;
    ASSERT_EQ(::waitpid(each, &status, 0), each);
    EXPECT_EQ(status, 0);
  }
  EXPECT_EQ(readAccount(path)->membership.enabled.size(), 1u + kProcesses * kChanges);
}

TEST_F(MembershipFileTest, NobodyElseChangesItMeanwhile) {
  const auto expectLocked = [&](const char* what, const std::function<void()>& work) {
    bool wasLocked = false;
    platform.files.intercept = [&](const ForwardingFileSystem::Call& call) {
      std::error_code error;
      const bool isChange =
          call.operation == FileOperation::writeAtomically || call.operation == FileOperation::remove;
      if (isChange && call.path == path) wasLocked = !platform.realFiles.hold(path + "-lock", error);
      return std::error_code();
    };
    work();
    platform.files.heal();
    EXPECT_TRUE(wasLocked) << what;
  };
  expectLocked("set", [&] { writeAccount(path, account); });
  expectLocked("changed", [&] { changeMembership(path, account, [](Membership&) {}); });
  expectLocked("removed", [&] { removeAccount(path); });
  writeAccount(path, account);
  platform.files.failAlways(FileOperation::hold, std::errc::device_or_resource_busy);
  try {
    writeAccount(path, account);
    FAIL() << "others hold it";
  } catch (const PlatformException& exception) {
    EXPECT_THAT(exception.reason(), HasSubstr("can't lock " + path + "-lock"));
  }
}

// The switches of an account at a place.
class PlaceSwitchesTest : public MembershipFileTest {
 protected:
  DotPeltoSessionProxy& proxy = DotPeltoSessionProxy::current();
  String error;
};

TEST_F(PlaceSwitchesTest, AreSettingsOfThisComputerAndNobodyIsAsked) {
  writeAccount(path, account);
  EXPECT_TRUE(proxy.isComputerEnabledForSyncing());
  EXPECT_TRUE(proxy.dataclassIsEnabledForSyncing(kBookmarks));
  EXPECT_FALSE(proxy.dataclassIsEnabledForSyncing("com.keldra.Contacts"));
  EXPECT_TRUE(proxy.setDataclass(kBookmarks, false, error));
  EXPECT_FALSE(proxy.dataclassIsEnabledForSyncing(kBookmarks));
  EXPECT_TRUE(proxy.setDataclass(kBookmarks, true, error));
  EXPECT_TRUE(proxy.dataclassIsEnabledForSyncing(kBookmarks));
  EXPECT_FALSE(error);
  EXPECT_THAT(service.calls, IsEmpty());
  expectEqual(*userAccount(), account);
}

TEST_F(PlaceSwitchesTest, ASwitchThatCannotBeKeptIsAnError) {
  writeAccount(path, account);
  platform.files.failAlways(FileOperation::writeAtomically, std::errc::no_space_on_device);
  EXPECT_FALSE(proxy.setDataclass(kBookmarks, false, error));
  EXPECT_THAT(error.toString(), HasSubstr(path));
  EXPECT_TRUE(proxy.dataclassIsEnabledForSyncing(kBookmarks));
}

}  // namespace
}  // namespace corvane::pelto
