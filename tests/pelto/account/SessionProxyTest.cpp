// The switches for this computer, over the user's account file; and what is noted of a service that a test
// scripts.

#include <gmock/gmock.h>

#include "CorvaneSyncClient/platform/pelto/account/DotPeltoSessionProxy.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/pelto/account/AccountAtPlace.h"
#include "tests/pelto/account/ScriptedService.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kBookmarks = "com.keldra.Bookmarks";

class SessionProxyTest : public ::testing::Test {
 protected:
  pelto::Account account() { return *pelto::userAccount(); }
  void setAccount(const std::string& url = accountAtPlace().url) {
    pelto::removeAccount(pelto::userAccountPath());
    pelto::Account account = accountAtPlace();
    account.url = url;
    pelto::writeAccount(pelto::userAccountPath(), account);
  }
  // What each question does with an account file that others may read.
  void makeFileUnusable() {
    setAccount();
    ASSERT_FALSE(platform.realFiles.write(pelto::userAccountPath(), "rubbish"));
  }

  StrictPlatform platform;
  ScriptedService service;
  DotPeltoSessionProxy& proxy = DotPeltoSessionProxy::current();
  String error;
};

TEST_F(SessionProxyTest, WithoutAnAccountEverythingIsOffAndTheServiceIsNotAsked) {
  EXPECT_FALSE(proxy.isComputerEnabledForSyncing());
  EXPECT_FALSE(proxy.dataclassIsEnabledForSyncing(kBookmarks));
  for (const bool on : {true, false}) {
    error = String();
    EXPECT_FALSE(proxy.setDataclass(kBookmarks, on, error));
    EXPECT_EQ(error,
              "No account at the online service is set on this computer. `loomerctl account set` sets one.");
  }
  EXPECT_THAT(service.calls, IsEmpty());
}

TEST_F(SessionProxyTest, AComputerWithAnAccountIsEnabledAndTheServiceIsNotAsked) {
  setAccount();
  service.problem = "it sleeps";
  EXPECT_TRUE(proxy.isComputerEnabledForSyncing());
  EXPECT_THAT(service.calls, IsEmpty());
}

TEST_F(SessionProxyTest, AnUnusableAccountFileRaisesEverywhere) {
  makeFileUnusable();
  EXPECT_THROW(proxy.isComputerEnabledForSyncing(), PlatformException);
  EXPECT_THROW(proxy.dataclassIsEnabledForSyncing(kBookmarks), PlatformException);
  EXPECT_THROW(proxy.setDataclass(kBookmarks, true, error), PlatformException);
  EXPECT_THROW(proxy.setDataclass(kBookmarks, false, error), PlatformException);
  EXPECT_THAT(service.calls, IsEmpty());
}

TEST_F(SessionProxyTest, AScopeMakesAnotherProxyCurrent) {
  struct Other : DotPeltoSessionProxy {
    bool isComputerEnabledForSyncing() override { return true; }
    bool dataclassIsEnabledForSyncing(const String&) override { return true; }
    bool setDataclass(const String&, bool, String&) override { return true; }
  } other;
  {
    const DotPeltoSessionProxyScope scope(other);
    EXPECT_EQ(&DotPeltoSessionProxy::current(), &other);
  }
  EXPECT_EQ(&DotPeltoSessionProxy::current(), &proxy);
}

class HubOfUserTest : public SessionProxyTest {};

TEST_F(HubOfUserTest, EveryKindOfAnswerIsNoted) {
  const std::function<void(pelto::Hub&)> questions[] = {
      [](pelto::Hub& hub) { hub.remoteChanges({}); },
      [](pelto::Hub& hub) { hub.push({}); },
      [](pelto::Hub& hub) { hub.hasPush("M"); },
  };
  for (const auto& question : questions) {
    setAccount();
    const auto hub = pelto::hubOf(account());
    EXPECT_EQ(account().reached, std::nullopt) << "making a hub asks nobody";
    question(*hub);
    EXPECT_EQ(account().reached, platform.clock.now()) << service.calls.back();
  }
}

TEST_F(HubOfUserTest, OnlyTheFirstAnswerOfADayIsNoted) {
  constexpr double kDay = 24.0 * 60 * 60;
  setAccount();
  const auto hub = pelto::hubOf(account());
  hub->hasPush("M");
  const auto first = account().reached;
  platform.clock.time.seconds += kDay - 1;
  pelto::hubOf(account())->hasPush("M");
  EXPECT_EQ(account().reached, first);
  platform.clock.time.seconds += 1;
  hub->hasPush("M");
  EXPECT_EQ(account().reached, first) << "one hub notes once";
  pelto::hubOf(account())->hasPush("M");
  EXPECT_EQ(account().reached, platform.clock.now());
}

TEST_F(HubOfUserTest, AnAccountThatTheUserChangedMeanwhileStands) {
  setAccount();
  service.meanwhile = [this] { setAccount("https://ada@dav.example.com/other"); };
  pelto::hubOf(account())->hasPush("M");
  EXPECT_EQ(account().url, "https://ada@dav.example.com/other");
  EXPECT_EQ(account().reached, std::nullopt) << "that one has not been reached";
  service.meanwhile = [] { pelto::removeAccount(pelto::userAccountPath()); };
  pelto::hubOf(account())->hasPush("M");
  EXPECT_FALSE(pelto::userAccount());
}

TEST_F(HubOfUserTest, AnAnswerThatCannotBeNotedStands) {
  setAccount();
  service.pushes = {"M"};
  platform.files.failAlways(FileOperation::writeAtomically, std::errc::no_space_on_device);
  EXPECT_TRUE(pelto::hubOf(account())->hasPush("M"));
  EXPECT_EQ(account().reached, std::nullopt);
  ASSERT_EQ(platform.log.messages.size(), 1u);
  EXPECT_THAT(platform.log.messages[0], HasSubstr("The online service answered, but that cannot be noted: "));
  EXPECT_THAT(platform.log.messages[0], Not(HasSubstr("geheim")));
  platform.log.messages.clear();
}

TEST_F(HubOfUserTest, AServiceThatDoesNotAnswerOrIsNotAskedIsNotNoted) {
  setAccount();
  service.enabled = false;
  pelto::hubOf(account())->remoteChanges({});
  EXPECT_EQ(account().reached, std::nullopt);
  service.problem = "it sleeps";
  EXPECT_THROW(pelto::hubOf(account())->hasPush("M"), PlatformException);
  EXPECT_EQ(account().reached, std::nullopt);
}

}  // namespace
}  // namespace corvane
