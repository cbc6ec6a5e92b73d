#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <vector>

#include "CorvaneSyncClient/platform/system/linux/SdBusNotificationCenter.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tests/system/ScopedVariable.h"

namespace corvane {
namespace {

// A message bus of the test's own, ended when the object goes.
class PrivateBus {
 public:
  explicit PrivateBus(const std::string& socketPath) : address("unix:path=" + socketPath) {
    int ends[2];
    if (pipe(ends) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    std::string addressArgument = "--address=" + address;
    std::vector<std::string> words{"dbus-daemon", "--session",         "--nofork",
                                   "--nopidfile", "--print-address=1", addressArgument};
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    if (posix_spawnp(&_daemon, "dbus-daemon", &actions, nullptr, arguments.data(), environ) != 0)
      _daemon = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    char byte = 0;
    isReady = read(ends[0], &byte, 1) == 1;  // it prints its address once it listens
    close(ends[0]);
  }
  ~PrivateBus() {
    if (_daemon <= 0) return;
    kill(_daemon, SIGTERM);
    waitpid(_daemon, nullptr, 0);
  }

  std::string address;
  bool isReady = false;

 private:
  pid_t _daemon = -1;
};

struct Received {
  std::string path, interface, member, name, object;
  friend bool operator==(const Received&, const Received&) = default;
};

int keepSignal(sd_bus_message* message, void* context, sd_bus_error*) {
  const char* name = nullptr;
  const char* object = nullptr;
  if (sd_bus_message_read(message, "ss", &name, &object) < 0) return 0;
  static_cast<std::vector<Received>*>(context)->push_back({sd_bus_message_get_path(message),
                                                           sd_bus_message_get_interface(message),
                                                           sd_bus_message_get_member(message), name, object});
  return 0;
}

// A listener on the bus, subscribed once the constructor is done.
class Listener {
 public:
  Listener() {
    sd_bus* opened = nullptr;
    EXPECT_GE(sd_bus_open_user(&opened), 0);
    _bus.reset(opened);
    EXPECT_GE(sd_bus_match_signal(opened, nullptr, nullptr, "/com/keldra/DistributedNotificationCenter",
                                  nullptr, nullptr, &keepSignal, &_received),
              0);
  }
  // Waits until `count` signals have come, for half a minute at most.
  std::vector<Received> wait(std::size_t count) {
    while (_received.size() < count) {
      const int processed = sd_bus_process(_bus.get(), nullptr);
      if (processed < 0) break;
      if (processed == 0 && sd_bus_wait(_bus.get(), 30'000'000) <= 0) break;
    }
    return _received;
  }

 private:
  struct Close {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
  };
  std::unique_ptr<sd_bus, Close> _bus;
  std::vector<Received> _received;
};

// What the first match in the installed description of the interface captures.
std::string described(const char* pattern) {
  std::ifstream file(CORVANE_INTERFACE);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  std::smatch found;
  return std::regex_search(text, found, std::regex(pattern)) ? found[1].str() : "";
}

TEST(SdBusNotificationCenter, AListenerReceivesTheSignalsThatTheInterfaceDescribes) {
  TemporaryDirectory directory;
  const PrivateBus bus(directory / "bus");
  ASSERT_TRUE(bus.isReady);
  const ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", bus.address);
  Listener listener;
  SdBusNotificationCenter center;
  EXPECT_EQ(center.post("CorvaneBookmarkFileNotificationName", "tester"), std::nullopt);
  EXPECT_EQ(center.post("Second", "ünïcödé"), std::nullopt);
  const std::string path = described("<node name=\"(.*)\"");
  const std::string interface = described("<interface name=\"(.*)\"");
  const std::string signal = described("<signal name=\"(.*)\"");
  EXPECT_EQ(path, "/com/keldra/DistributedNotificationCenter");
  const std::vector<Received> expected = {
      {path, interface, signal, "CorvaneBookmarkFileNotificationName", "tester"},
      {path, interface, signal, "Second", "ünïcödé"}};
  EXPECT_EQ(listener.wait(2), expected);
}

TEST(SdBusNotificationCenter, TextThatNoBusCarriesIsAnswered) {
  TemporaryDirectory directory;
  const PrivateBus bus(directory / "bus");
  ASSERT_TRUE(bus.isReady);
  const ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", bus.address);
  EXPECT_EQ(SdBusNotificationCenter().post("name", "\xff"), "cannot build the signal: Invalid argument");
}

TEST(SdBusNotificationCenter, AMissingBusIsAnswered) {
  TemporaryDirectory directory;
  {
    const ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (directory / "none"));
    EXPECT_EQ(SdBusNotificationCenter().post("name", "object"), "no session bus: No such file or directory");
  }
  const ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", std::nullopt);
  const ScopedVariable runtime("XDG_RUNTIME_DIR", std::nullopt);
  const std::optional<std::string> reason = SdBusNotificationCenter().post("name", "object");
  ASSERT_TRUE(reason);
  EXPECT_TRUE(reason->starts_with("no session bus: ")) << *reason;
}

TEST(SdBusNotificationCenter, ABusThatNeverAnswersIsGivenUp) {
  TemporaryDirectory directory;
  const std::string path = directory / "dead";
  const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un name{};
  name.sun_family = AF_UNIX;
  std::strncpy(name.sun_path, path.c_str(), sizeof name.sun_path - 1);
  ASSERT_EQ(bind(listening, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
  ASSERT_EQ(listen(listening, 5), 0);
  const ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", "unix:path=" + path);
  EXPECT_EQ(SdBusNotificationCenter().post("name", "object"), "session bus: Connection timed out");
  close(listening);
}

}  // namespace
}  // namespace corvane
