// The real tools and a real corvane-hub.

#include <gmock/gmock.h>

#include <memory>

#include "CorvaneSyncClient/platform/pelto/seal/Invitation.h"
#include "tests/corvane-hub/HubProcess.h"
#include "tests/front/PlaceComputer.h"

namespace corvane {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class HubToolTest : public ::testing::Test {
 protected:
  std::string address() const { return "hub://127.0.0.1:" + std::to_string(hub->port()) + "?tls=no"; }
  // As another computer of ada's, with a token of its own.
  void join(PlaceComputer& computer, const std::string& name, const std::string& invitation) {
    const std::string itsToken = accountCommand(directory.path(), {"token", "ada", name});
    ASSERT_EQ(computer.ctl("account join", invitation + itsToken + "\n"), 0) << computer.errors;
  }
  // Both computers belong to the account. It is not made by `account set`, which tries a server for half a
  // minute.
  void joinBoth() {
    const std::string invitation =
        pelto::lineOf(
            {address(), {}, {}, "A1C0B5A0-0F3D-4F7C-9B59-1F1B7F1F2A01", 1, pelto::AccountKey::random(), {}}) +
        "\n";
    ASSERT_EQ(first.ctl("account join", invitation + token + "\n"), 0) << first.errors;
    join(second, "desktop", invitation);
  }
  void syncBoth() {
    first.write({"ant"});
    second.write({"bee"});
    for (PlaceComputer* each : {&first, &second}) ASSERT_EQ(each->run("--register"), 0);
    for (PlaceComputer* each : {&first, &second, &first}) ASSERT_EQ(each->sync(), 0);
  }
  void meet() {
    joinBoth();
    syncBoth();
  }
  // What a session says whose exchange does not succeed, and which ends well all the same.
  std::string lineOf(PlaceComputer& computer) {
    EXPECT_EQ(computer.sync(), 0);
    const auto lines = computer.takeLog();
    EXPECT_EQ(lines.size(), 1u);
    return lines.empty() ? "" : lines[0];
  }

  const TemporaryDirectory directory;
  std::unique_ptr<HubProcess> hub = std::make_unique<HubProcess>(directory.path());
  const std::string token = accountCommand(directory.path(), {"add", "ada", "laptop"});
  PlaceComputer first, second;
};

TEST_F(HubToolTest, TwoComputersMeet) {
  ASSERT_EQ(first.ctl("account set '" + address() + "'", token + "\n"), 0) << first.errors;
  ASSERT_EQ(first.ctl("account invite"), 0);
  join(second, "desktop", first.printed);
  syncBoth();
  for (PlaceComputer* each : {&first, &second}) {
    EXPECT_THAT(each->titles(), UnorderedElementsAre("ant", "bee"));
    EXPECT_THAT(each->log(), IsEmpty());
  }
}

TEST_F(HubToolTest, EachComputerHasItsOwnSwitch) {
  joinBoth();
  for (PlaceComputer* each : {&first, &second}) {
    EXPECT_EQ(each->run("--canregister"), 0);
    EXPECT_EQ(each->run("--isregistered"), 1);
    EXPECT_THAT(each->takeLog(), ElementsAre("Corvane Sync Client is not registered"));
  }
  EXPECT_EQ(first.run("--register"), 0);
  EXPECT_EQ(first.run("--register"), 0) << "again changes nothing";
  EXPECT_EQ(first.run("--isregistered"), 0);
  EXPECT_EQ(second.run("--isregistered"), 1);
  EXPECT_EQ(second.takeLog().size(), 1u);
  EXPECT_EQ(first.run("--unregister"), 0);
  EXPECT_EQ(first.run("--isregistered"), 1);
  EXPECT_THAT(first.log(), IsEmpty());
}

TEST_F(HubToolTest, AWrongTokenSetsNothingAndIsNotShown) {
  const std::string secret = token.substr(token.rfind('.') + 1);
  const std::string wrong = token.substr(0, token.size() - 1) + (token.back() == '0' ? '1' : '0');
  EXPECT_EQ(first.ctl("account set '" + address() + "'", wrong + "\n"), 1);
  EXPECT_THAT(first.errors,
              AllOf(HasSubstr("127.0.0.1"), HasSubstr("token"), Not(HasSubstr(secret.substr(0, 16)))));
  EXPECT_EQ(first.run("--canregister"), 1);
  EXPECT_EQ(first.run("--register"), 1);
  EXPECT_THAT(first.log(), IsEmpty());
}

TEST_F(HubToolTest, ARevokedTokenIsToldInTheLogWhichDoesNotShowIt) {
  meet();
  accountCommand(directory.path(), {"revoke", "ada", "laptop"});
  first.add("cat");
  const std::string secret = token.substr(token.rfind('.') + 1);
  EXPECT_THAT(lineOf(first), AllOf(StartsWith(kSyncedAlone), HasSubstr("127.0.0.1"), HasSubstr("revoked"),
                                   Not(HasSubstr(secret))));
  EXPECT_EQ(first.ctl("account test"), 1);
  EXPECT_THAT(first.errors, AllOf(HasSubstr("revoked"), Not(HasSubstr(secret))));
  EXPECT_EQ(first.run("--isregistered"), 0) << "a setting of this computer";
  const std::string another = accountCommand(directory.path(), {"token", "ada", "laptop"});
  ASSERT_EQ(first.ctl("account set '" + address() + "'", another + "\n"), 0) << first.errors;
  for (PlaceComputer* each : {&first, &second}) ASSERT_EQ(each->sync(), 0);
  EXPECT_THAT(second.titles(), UnorderedElementsAre("ant", "bee", "cat"));
  EXPECT_THAT(first.log(), IsEmpty());
}

TEST_F(HubToolTest, AServerThatIsAwayIsToldInTheLogAndCaughtUpWith) {
  meet();
  const std::string listen = "listen = 127.0.0.1:" + std::to_string(hub->port()) + "\n";
  hub->kill();
  first.add("cat");
  EXPECT_THAT(lineOf(first), AllOf(StartsWith(kSyncedAlone), HasSubstr("127.0.0.1")));
  hub = std::make_unique<HubProcess>(directory.path(), listen);
  for (PlaceComputer* each : {&first, &second}) ASSERT_EQ(each->sync(), 0);
  EXPECT_THAT(second.titles(), UnorderedElementsAre("ant", "bee", "cat"));
  EXPECT_THAT(first.log(), IsEmpty());
}

TEST_F(HubToolTest, AFullAccountIsReadAndGivenNothingUntilThereIsRoom) {
  meet();
  second.add("cat");
  ASSERT_EQ(second.sync(), 0);
  accountCommand(directory.path(), {"quota", "ada", "1 KiB"});
  first.add("dog");
  EXPECT_THAT(lineOf(first), StartsWith("There is no room at the online service: "));
  EXPECT_THAT(first.titles(), UnorderedElementsAre("ant", "bee", "cat", "dog"));
  EXPECT_EQ(first.ctl("status"), 1);
  EXPECT_THAT(first.printed,
              HasSubstr("There is no room at the online service: what was changed here stays"));
  accountCommand(directory.path(), {"quota", "ada", "1 GiB"});
  for (PlaceComputer* each : {&first, &second}) ASSERT_EQ(each->sync(), 0);
  EXPECT_EQ(first.ctl("status"), 0) << first.printed;
  EXPECT_THAT(second.titles(), UnorderedElementsAre("ant", "bee", "cat", "dog"));
  EXPECT_THAT(first.log(), IsEmpty());
}

}  // namespace
}  // namespace corvane
