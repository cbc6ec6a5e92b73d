// The real tool and a real online service.

#include <gmock/gmock.h>

#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/front/Installation.h"
#include "tests/pelto/PostgresServer.h"

namespace corvane {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

// A computer whose user has an account. What a run says on standard output or standard error fails the test.
class ConnectedComputer {
 public:
  explicit ConnectedComputer(const std::string& url,
                             const char* identifier = "6E1C0B5A-0F3D-4F7C-9B59-1F1B7F1F2A01")
      : _identifier(identifier) {
    setAccount(url);
  }

  void setAccount(const std::string& url) {
    const StrictPlatform platform;
    pelto::writeAccount(accountFile(), {url, _identifier, std::nullopt});
  }
  std::optional<Date> reached() {
    const StrictPlatform platform;
    return pelto::readAccount(accountFile())->reached;
  }
  std::optional<int> run(std::vector<std::string> arguments) {
    const auto status = statusOf(_installation, std::move(arguments));
    EXPECT_EQ(contentsOf(_installation.standardOutput()) + contentsOf(_installation.standardError()), "");
    return status;
  }
  std::optional<int> run(const char* command) { return run(std::vector<std::string>{command}); }
  std::vector<std::string> systemLog() const { return _installation.systemLog(); }

 private:
  std::string accountFile() const { return pelto::accountPathForHome(_installation.home()); }

  Installation _installation;
  String _identifier;
};

class HubToolTest : public ::testing::Test {
 protected:
  PostgresServer& server = postgresServer();
};

TEST_F(HubToolTest, SwitchesBookmarksOnAndOff) {
  ConnectedComputer computer(server.addAccount());
  EXPECT_EQ(computer.run("--canregister"), 1) << "never reached";
  EXPECT_EQ(computer.run("--unregister"), 0);
  EXPECT_NE(computer.reached(), std::nullopt);
  EXPECT_EQ(computer.run("--canregister"), 0);
  EXPECT_EQ(computer.run("--register"), 0);
  EXPECT_EQ(computer.run("--isregistered"), 0);
  EXPECT_EQ(computer.run("--register"), 0) << "again changes nothing";
  EXPECT_EQ(computer.run("--isregistered"), 0);
  EXPECT_EQ(computer.run("--unregister"), 0);
  EXPECT_EQ(computer.run("--isregistered"), 1);
  EXPECT_THAT(computer.systemLog(), IsEmpty());
  EXPECT_EQ(computer.run({"--unregistersyncclient", "com.keldra.Corvane"}), 0)
      << "switching off leaves the registration";
}

TEST_F(HubToolTest, EachComputerHasItsOwnSwitch) {
  const std::string url = server.addAccount();
  ConnectedComputer first(url), second(url, "0D9E4C1A-7B5E-4C0E-8C39-5A3A0C0B7E11");
  for (ConnectedComputer* each : {&first, &second}) {
    ASSERT_EQ(each->run({"--registersyncclient", "com.keldra.Corvane"}), 0);
    ASSERT_EQ(each->run("--unregister"), 0);
  }
  EXPECT_EQ(first.run("--register"), 0);
  EXPECT_EQ(first.run("--isregistered"), 0);
  EXPECT_EQ(second.run("--isregistered"), 1);
}

TEST_F(HubToolTest, ErrorsSayWhatIsWrongAndShowNoPassword) {
  const std::string url = server.addAccount("wanda");
  ConnectedComputer computer(url);
  ASSERT_EQ(computer.run("--unregister"), 0);
  ASSERT_EQ(computer.run("--register"), 0);
  const std::string password = url.substr(url.find("wanda:") + 6, 32);
  server.hubAccount("password", "wanda");
  EXPECT_EQ(computer.run("--isregistered"), 1);
  EXPECT_EQ(computer.run("--register"), 1);
  const auto about = [&](const char* beginning) {
    return AllOf(StartsWith(beginning), HasSubstr("user wanda"), HasSubstr("password"),
                 Not(HasSubstr(password)));
  };
  EXPECT_THAT(computer.systemLog(),
              ElementsAre(about("Error checking if bookmarks data class is enabled with .Pelto: "),
                          about("Error enabling bookmarks with .Pelto: ")));
}

TEST_F(HubToolTest, MissingPasswordIsToldInTheLogAlone) {
  server.addAccount("walter");
  ConnectedComputer computer("postgresql://walter@127.0.0.1:" + std::to_string(server.port()) + "/hub");
  EXPECT_EQ(computer.run("--unregister"), 1);
  EXPECT_THAT(computer.systemLog(), ElementsAre(AllOf(StartsWith("Error disabling bookmarks with .Pelto: "),
                                                      HasSubstr("the server wants a password"))));
}

TEST_F(HubToolTest, DatabaseWithoutTheServiceCannotBeSwitchedOn) {
  server.makeDatabase("empty");
  ConnectedComputer computer(server.administratorUrl("empty"));
  EXPECT_EQ(computer.run("--unregister"), 1);
  EXPECT_THAT(computer.systemLog(), ElementsAre(AllOf(StartsWith("Error disabling bookmarks with .Pelto: "),
                                                      HasSubstr("docs/hub.md"))));
  EXPECT_EQ(computer.reached(), std::nullopt) << "a server that is none of the service's is not it";
}

}  // namespace
}  // namespace corvane
