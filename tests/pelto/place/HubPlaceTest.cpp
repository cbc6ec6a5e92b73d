#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "tests/corvane-hub/HubProcess.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/fakes/TemporaryDirectory.h"

// What a real corvane-hub refuses, and what its driver makes of that.

namespace corvane::pelto {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class HubPlaceTest : public testing::Test {
 protected:
  std::unique_ptr<Place> place(double seconds = 600, double pauseBeforeEnd = 0) const {
    return makePlace(parsePlaceAddress("hub://127.0.0.1:" + std::to_string(hub.port()) + "?tls=no"),
                     {"", SharedSecret(token)}, after(seconds), pauseBeforeEnd);
  }
  void account(const std::vector<std::string>& arguments) const {
    accountCommand(directory.path(), arguments);
  }
  template <typename Expected, typename Call>
  std::string failureOf(const Call& call) const {
    try {
      call();
    } catch (const Expected& exception) {
      EXPECT_THAT(exception.reason(), AllOf(HasSubstr(" at 127.0.0.1:" + std::to_string(hub.port())),
                                            Not(HasSubstr(token.substr(token.rfind('.') + 1)))));
      return exception.reason();
    }
    ADD_FAILURE() << "taken";
    return {};
  }
  // Returns once the server has the file without a name that a body goes into, or it is too late for that.
  void awaitUpload(const std::atomic<bool>& isOver) const {
    const std::string descriptors = "/proc/" + std::to_string(hub.process()) + "/fd";
    while (!isOver) {
      for (const auto& each : std::filesystem::directory_iterator(descriptors)) {
        std::error_code closed;
        const std::string file = std::filesystem::read_symlink(each.path(), closed);
        if (file.find("/objects/#") != std::string::npos) return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  static GetRequest asking(const std::string& name) { return {name, Writing::contested, {}, 1 << 20}; }

  FakePlatform platform;
  TemporaryDirectory directory;
  std::string token = accountCommand(directory.path(), {"add", "ada", "laptop"});
  HubProcess hub{directory.path()};
};

TEST_F(HubPlaceTest, AFullAccountIsNoRoomUntilThereIsSome) {
  account({"quota", "ada", "10 KiB"});
  const std::string bytes(3000, 'x');
  place()->put({{"f/1", bytes}, {"f/2", bytes}});
  for (const bool contested : {true, false}) {
    const std::string failure = failureOf<PlaceFullException>([&] {
      if (contested) place()->putNew("f/3", bytes);
      if (!contested) place()->put({{"f/3", bytes}});
    });
    EXPECT_THAT(failure, AllOf(HasSubstr("f/3"), HasSubstr("507"), HasSubstr("it may hold 10 KiB"),
                               HasSubstr("Make room there")));
  }
  EXPECT_EQ(place()->get({asking("f/3")}).front().state, GetAnswer::State::absent);
  EXPECT_EQ(place()->list("f").size(), 2U) << "reading goes on";
  place()->remove({"f/1"});
  EXPECT_EQ(place()->putNew("f/3", bytes), Made::made);
}

TEST_F(HubPlaceTest, AnObjectThatIsTooLargeIsNoRoom) {
  const std::string failure = failureOf<PlaceFullException>([&] {
    place()->put({{"f/1", std::string((64 << 20) + 1, 'x')}});
  });
  EXPECT_THAT(failure, AllOf(HasSubstr("413"), HasSubstr("64 MiB")));
}

TEST_F(HubPlaceTest, ARevokedTokenAndARemovedAccountAreRefusedForAllCalls) {
  place()->put({{"f/1", "x"}});
  const std::unique_ptr<Place> connected = place();
  EXPECT_EQ(connected->list("f").size(), 1U);
  const auto expectRefused = [&](Place& asked, const std::string& words) {
    const std::string failures[] = {
        failureOf<PlaceRefusedException>([&] { asked.putNew("f/2", "x"); }),
        failureOf<PlaceRefusedException>([&] {
          asked.put({{"f/2", "x"}});
        }),
        failureOf<PlaceRefusedException>([&] { asked.get({asking("f/1")}); }),
        failureOf<PlaceRefusedException>([&] { asked.list("f"); }),
        failureOf<PlaceRefusedException>([&] { asked.remove({"f/1"}); }),
    };
    for (const std::string& failure : failures)
      EXPECT_THAT(failure, AllOf(HasSubstr(words), HasSubstr("this computer's token")));
  };
  account({"revoke", "ada", "laptop"});
  expectRefused(*connected, "403 (the token has been revoked)");
  expectRefused(*place(), "403 (the token has been revoked)");
  account({"remove", "ada"});
  expectRefused(*place(), "401 (a token is missing or unknown)");
}

TEST_F(HubPlaceTest, WhoAsksTooOftenWaitsAsLongAsTheServerSays) {
  // Far more than its 1,000 at once; a pause that is guessed is over before there is room for the rest.
  std::vector<GetRequest> requests(1'700, asking("f/1"));
  for (const GetAnswer& answer : place()->get(requests)) ASSERT_EQ(answer.state, GetAnswer::State::absent);
}

TEST_F(HubPlaceTest, AServerThatIsKilledInTheMiddleLeavesItOpenWhatWasMade) {
  const std::string bytes(8 << 20, 'x');
  std::atomic<bool> isOver = false;
  std::thread killing([&] {
    awaitUpload(isOver);
    hub.kill();
  });
  const Made made = place(600, 25)->putNew("f/1", bytes);
  isOver = true;
  killing.join();
  EXPECT_EQ(made, Made::unknown);
  EXPECT_THAT(failureOf<PlaceException>([&] { place()->get({asking("f/1")}); }),
              AllOf(HasSubstr("read f/1"), HasSubstr("online")));
  EXPECT_THAT(failureOf<PlaceException>([&] { place()->putNew("f/2", "x"); }), HasSubstr("make f/2"))
      << "never sent: known not to be made";
}

TEST_F(HubPlaceTest, AServerThatEndsFinishesWhatIsOnItsWay) {
  const std::string bytes(128 << 10, 'x');
  std::atomic<bool> isOver = false;
  std::thread ending([&] {
    awaitUpload(isOver);
    hub.signal(SIGTERM);
  });
  EXPECT_EQ(place(600, 2)->putNew("f/1", bytes), Made::made);
  isOver = true;
  ending.join();
  EXPECT_EQ(hub.awaitEnd(), 0);
}

}  // namespace
}  // namespace corvane::pelto
