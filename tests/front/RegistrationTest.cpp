// The registration commands: every row of what they ask, in which order, what they answer and what they log.

#include <gtest/gtest.h>

#include <stdexcept>

#include "CorvaneSyncClient/front/Commands.h"
#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/pelto/account/DotPeltoSessionProxy.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/session/ScriptedLoomer.h"

namespace corvane {
namespace {

using Command = CommandLine::Command;
using Calls = std::vector<std::string>;

enum class Answer { no, yes, raises };

bool given(Answer answer, const char* reason) {
  if (answer == Answer::raises) throw PlatformException("AName", std::string(reason));
  return answer == Answer::yes;
}

// An engine that notes what it is asked, and raises where a test says.
class ObservedLoomer : public ScriptedLoomer {
 public:
  explicit ObservedLoomer(Calls& calls) : _calls(calls) {}

  using ScriptedLoomer::registerClientWithIdentifier;
  LoomerClient* clientWithIdentifier(const String& identifier) override {
    note("find", identifier);
    return ScriptedLoomer::clientWithIdentifier(identifier);
  }
  LoomerClient* registerClientWithIdentifier(const String& identifier, const std::string& path) override {
    note("register", identifier);
    return registrable ? ScriptedLoomer::registerClientWithIdentifier(identifier, path) : nullptr;
  }
  void unregisterClient(LoomerClient& which) override {
    note("unregister", which.clientIdentifier());
    ScriptedLoomer::unregisterClient(which);
  }

  bool registrable = true;
  std::string raisesAt;  // "find", "register" or "unregister"; empty: nowhere

 private:
  void note(const std::string& call, const String& identifier) {
    _calls.push_back(call + ' ' + identifier.toString());
    if (call == raisesAt) throw PlatformException("AName", call + " failed");
  }

  Calls& _calls;
};

class ObservedProxy : public DotPeltoSessionProxy {
 public:
  explicit ObservedProxy(Calls& calls) : _calls(calls) {}

  bool isComputerEnabledForSyncing() override {
    _calls.push_back("computer?");
    return given(computer, "no computer");
  }
  bool dataclassIsEnabledForSyncing(const String& dataclass) override {
    _calls.push_back("enabled? " + dataclass.toString());
    return given(dataClass, "no answer");
  }
  bool setDataclass(const String& dataclass, bool isEnabledForSyncing, String& error) override {
    _calls.push_back((isEnabledForSyncing ? "on " : "off ") + dataclass.toString());
    errorWasAbsent = !error;
    if (given(switching, "no switch")) return true;
    error = "refused there";
    return false;
  }

  Answer computer = Answer::yes;
  Answer dataClass = Answer::yes;
  Answer switching = Answer::yes;
  bool errorWasAbsent = false;

 private:
  Calls& _calls;
  DotPeltoSessionProxyScope _scope{*this};
};

constexpr const char* kClient = "com.keldra.Corvane";
const std::string kFind = "find com.keldra.Corvane";
const std::string kRegister = "register com.keldra.Corvane";
const std::string kUnregister = "unregister com.keldra.Corvane";
const std::string kComputer = "computer?";
const std::string kQuery = "enabled? com.keldra.Bookmarks";
const std::string kOn = "on com.keldra.Bookmarks";
const std::string kOff = "off com.keldra.Bookmarks";
const std::string kNotRegistered = "Corvane Sync Client is not registered";
const std::string kUncaught = "Uncaught exception running corvanetool: ";

// What a command meets.
struct Circumstances {
  bool registered = true;
  bool registrable = true;
  Answer computer = Answer::yes;
  Answer dataClass = Answer::yes;
  Answer switching = Answer::yes;
  std::string engineRaisesAt = {};  // "find", "register" or "unregister"; empty: nowhere
};

struct RegistrationRow {
  const char* phrase;
  Command command;
  Circumstances circumstances;
  int status;
  Calls calls;
  Calls messages;
};

const RegistrationRow kRegistrationRows[] = {
    {"registers afresh", Command::registerSyncClient, {}, 0, {kFind, kUnregister, kFind, kRegister}, {}},
    {"registers a client never seen",
     Command::registerSyncClient,
     {.registered = false},
     0,
     {kFind, kFind, kRegister},
     {}},
    {"cannot register: the earlier registration is gone all the same, and nothing is said",
     Command::registerSyncClient,
     {.registrable = false},
     1,
     {kFind, kUnregister, kFind, kRegister},
     {}},
    {"registering raises",
     Command::registerSyncClient,
     {.registered = false, .engineRaisesAt = "register"},
     1,
     {kFind, kFind, kRegister},
     {kUncaught + "register failed"}},
    {"unregistering raises before anything is registered",
     Command::registerSyncClient,
     {.engineRaisesAt = "unregister"},
     1,
     {kFind, kUnregister},
     {kUncaught + "unregister failed"}},
    {"unregisters", Command::unregisterSyncClient, {}, 0, {kFind, kUnregister}, {}},
    {"finds nothing to unregister", Command::unregisterSyncClient, {.registered = false}, 1, {kFind}, {}},
    {"the lookup raises",
     Command::unregisterSyncClient,
     {.engineRaisesAt = "find"},
     1,
     {kFind},
     {kUncaught + "find failed"}},

    {"the computer is enabled", Command::canRegister, {}, 0, {kComputer}, {}},
    {"the computer is not enabled", Command::canRegister, {.computer = Answer::no}, 1, {kComputer}, {}},
    {"the question about the computer has no handler of its own",
     Command::canRegister,
     {.computer = Answer::raises},
     1,
     {kComputer},
     {kUncaught + "no computer"}},

    {"bookmarks are on", Command::isRegistered, {}, 0, {kFind, kQuery}, {}},
    {"bookmarks are off", Command::isRegistered, {.dataClass = Answer::no}, 1, {kFind, kQuery}, {}},
    {"never registered: the service is not asked, and nothing is registered",
     Command::isRegistered,
     {.registered = false},
     1,
     {kFind},
     {kNotRegistered}},
    {"the service does not answer",
     Command::isRegistered,
     {.dataClass = Answer::raises},
     1,
     {kFind, kQuery},
     {"Error checking if bookmarks data class is enabled with .Pelto: no answer"}},
    {"the lookup has no handler of its own",
     Command::isRegistered,
     {.engineRaisesAt = "find"},
     1,
     {kFind},
     {kUncaught + "find failed"}},
    {"whether bookmarks are on does not depend on the computer",
     Command::isRegistered,
     {.computer = Answer::raises},
     0,
     {kFind, kQuery},
     {}},

    {"a registered client is switched on", Command::registerWithService, {}, 0, {kComputer, kFind, kOn}, {}},
    {"a client that is not registered is registered first",
     Command::registerWithService,
     {.registered = false},
     0,
     {kComputer, kFind, kRegister, kOn},
     {}},
    {"a computer that is not enabled: no message, no registration",
     Command::registerWithService,
     {.registered = false, .computer = Answer::no},
     1,
     {kComputer},
     {}},
    {"a client that cannot be registered is not switched on",
     Command::registerWithService,
     {.registered = false, .registrable = false},
     1,
     {kComputer, kFind, kRegister},
     {kNotRegistered}},
    {"the service refuses to switch on",
     Command::registerWithService,
     {.switching = Answer::no},
     1,
     {kComputer, kFind, kOn},
     {"Error enabling bookmarks with .Pelto: refused there"}},
    {"switching on raises",
     Command::registerWithService,
     {.switching = Answer::raises},
     1,
     {kComputer, kFind, kOn},
     {"Error enabling data class with .Pelto: no switch"}},
    {"registering: the question about the computer has no handler of its own",
     Command::registerWithService,
     {.computer = Answer::raises},
     1,
     {kComputer},
     {kUncaught + "no computer"}},
    {"registering: the lookup has no handler of its own",
     Command::registerWithService,
     {.engineRaisesAt = "find"},
     1,
     {kComputer, kFind},
     {kUncaught + "find failed"}},
    {"registering: the registration has no handler of its own",
     Command::registerWithService,
     {.registered = false, .engineRaisesAt = "register"},
     1,
     {kComputer, kFind, kRegister},
     {kUncaught + "register failed"}},

    {"switching off asks neither for the computer nor for the client",
     Command::unregisterFromService,
     {.registered = false, .computer = Answer::raises, .engineRaisesAt = "find"},
     0,
     {kOff},
     {}},
    {"the service refuses to switch off",
     Command::unregisterFromService,
     {.switching = Answer::no},
     1,
     {kOff},
     {"Error disabling bookmarks with .Pelto: refused there"}},
    {"switching off raises",
     Command::unregisterFromService,
     {.switching = Answer::raises},
     1,
     {kOff},
     {"Error disabling data class with .Pelto: no switch"}},
};

// A platform, an engine and a service as a command meets them.
struct Surroundings {
  explicit Surroundings(const Circumstances& circumstances = {}) {
    platform.bundles.own.resources["CorvaneClientDescription.plist"] = kDescription;
    loomer.registered = circumstances.registered;
    loomer.client.identifier = kClient;
    loomer.registrable = circumstances.registrable;
    loomer.raisesAt = circumstances.engineRaisesAt;
    proxy.computer = circumstances.computer;
    proxy.dataClass = circumstances.dataClass;
    proxy.switching = circumstances.switching;
  }

  static constexpr const char* kDescription = "/own/CorvaneClientDescription.plist";
  StrictPlatform platform;
  Calls calls;
  ObservedLoomer loomer{calls};
  ObservedProxy proxy{calls};
};

TEST(RegistrationTest, CommandsAskInOrderAndAnswer) {
  for (const RegistrationRow& row : kRegistrationRows) {
    SCOPED_TRACE(row.phrase);
    Surroundings around(row.circumstances);
    around.platform.log.expectMessages(row.messages);
    EXPECT_EQ(runCommand({row.command, kClient}), row.status);
    EXPECT_EQ(around.calls, row.calls);
  }
}

TEST(RegistrationTest, SwitchIsGivenAnAbsentErrorToFill) {
  for (const Command command : {Command::registerWithService, Command::unregisterFromService}) {
    Surroundings around;
    EXPECT_EQ(runCommand({command, String()}), 0);
    EXPECT_TRUE(around.proxy.errorWasAbsent);
  }
}

TEST(RegistrationTest, MissingClientIsRegisteredFromTheToolsOwnDescription) {
  Surroundings around({.registered = false});
  EXPECT_EQ(runCommand({Command::registerWithService, String()}), 0);
  ASSERT_EQ(around.loomer.registrations.size(), 1u);
  EXPECT_EQ(around.loomer.registrations[0].identifier, kClient);
  EXPECT_FALSE(around.loomer.registrations[0].bundleId);
  EXPECT_EQ(around.loomer.registrations[0].path, Surroundings::kDescription);
}

TEST(RegistrationTest, ErrorThatTheServiceLeavesAbsentIsLoggedAsItIs) {
  struct Wordless : ObservedProxy {
    using ObservedProxy::ObservedProxy;
    bool setDataclass(const String&, bool, String&) override { return false; }
  };
  Surroundings around;
  Wordless proxy(around.calls);
  around.platform.log.expectMessages({"Error disabling bookmarks with .Pelto: (null)"});
  EXPECT_EQ(runCommand({Command::unregisterFromService, String()}), 1);
}

TEST(RegistrationTest, OtherExceptionsOfTheServicePassThrough) {
  struct Foreign : ObservedProxy {
    using ObservedProxy::ObservedProxy;
    bool dataclassIsEnabledForSyncing(const String&) override { throw std::runtime_error("foreign"); }
    bool setDataclass(const String&, bool, String&) override { throw std::runtime_error("foreign"); }
  };
  for (const Command command :
       {Command::isRegistered, Command::registerWithService, Command::unregisterFromService}) {
    Surroundings around;
    Foreign proxy(around.calls);
    EXPECT_THROW(runCommand({command, String()}), std::runtime_error);
  }
}

}  // namespace
}  // namespace corvane
