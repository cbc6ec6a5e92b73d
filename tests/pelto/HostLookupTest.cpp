#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/HostLookup.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace {

// What the resolver below says of itself to the processes of this test.
struct Resolver {
  std::atomic<pid_t> process;       // where it is at work
  std::atomic<std::size_t> opened;  // how many descriptors are open there
};

Resolver& resolver() {
  static auto* const shared =
      new (::mmap(nullptr, sizeof(Resolver), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
          Resolver();
  return *shared;
}

std::size_t entriesOf(const char* directory) {
  const auto entries = std::filesystem::directory_iterator(directory);
  return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

// So many addresses from 192.0.2.0 on, to be freed by the system.
int addresses(std::uint32_t count, addrinfo** list) {
  const auto system = reinterpret_cast<decltype(&::getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  *list = nullptr;
  for (std::uint32_t i = count; i > 0; --i) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_STREAM;
    in_addr address{htonl(0xC0000200 + i - 1)};
    char text[INET_ADDRSTRLEN];
    ::inet_ntop(AF_INET, &address, text, sizeof text);
    addrinfo* one = nullptr;
    if (system(text, nullptr, &hints, &one) != 0) return EAI_FAIL;
    one->ai_next = *list;
    *list = one;
  }
  return 0;
}

}  // namespace

// The system's resolver in this program: it knows the names of these tests.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** list) {
  const std::string_view host(name);
  if ((hints->ai_flags & AI_NUMERICHOST) == 0) {
    resolver().opened = entriesOf("/proc/self/fd");
    resolver().process = ::getpid();
    if (host == "silent.test") {
      while (true) ::pause();
    }
    if (host == "slow.test") {
      std::this_thread::sleep_for(std::chrono::milliseconds(200));
      return addresses(1, list);
    }
    if (host == "large.test") return addresses(20'000, list);
    if (host == "crashing.test") ::_exit(1);
    if (host == "broken.test") {
      errno = ENETDOWN;
      return EAI_SYSTEM;
    }
  }
  const auto system = reinterpret_cast<decltype(&::getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
  return system(name, service, hints, list);
}

namespace corvane::pelto {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kLong = 3600;

class HostLookupTest : public testing::Test {
 protected:
  HostLookupTest() { resolver().process = 0; }
  ~HostLookupTest() override {
    EXPECT_EQ(entriesOf("/proc/self/task"), _threads);
    EXPECT_EQ(entriesOf("/proc/self/fd"), _descriptors);
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
    EXPECT_EQ(errno, ECHILD);
  }

 private:
  std::size_t _threads = entriesOf("/proc/self/task");
  std::size_t _descriptors = entriesOf("/proc/self/fd");
};

TEST_F(HostLookupTest, ASilentResolverIsGivenUpAtTheDeadlineAndLeavesNothing) {
  const auto began = std::chrono::steady_clock::now();
  const HostAddresses found = lookUpHost("silent.test", after(0.3));
  EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(300));
  EXPECT_THAT(found.numeric, IsEmpty());
  EXPECT_EQ(found.problem, "no name server answered in time");
}

TEST_F(HostLookupTest, NoAnswerIsAwaitedAfterTheDeadline) {
  EXPECT_EQ(lookUpHost("silent.test", after(-1)).problem, "no name server answered in time");
}

TEST_F(HostLookupTest, AddressesComeInTheResolversOrder) {
  EXPECT_THAT(lookUpHost("slow.test", after(kLong)).numeric, ElementsAre("192.0.2.0"));
  const HostAddresses found = lookUpHost("large.test", after(kLong));
  EXPECT_EQ(found.problem, "");
  ASSERT_EQ(found.numeric.size(), 20'000u) << "more than a pipe holds";
  EXPECT_EQ(found.numeric[1], "192.0.2.1");
  EXPECT_EQ(found.numeric.back(), "192.0.80.31");
}

TEST_F(HostLookupTest, AFailureIsReportedInTheSystemsWords) {
  EXPECT_EQ(lookUpHost("broken.test", after(kLong)).problem, std::strerror(ENETDOWN));
  EXPECT_EQ(lookUpHost("no_such..host", after(kLong)).problem, ::gai_strerror(EAI_NONAME));
  const HostAddresses crashed = lookUpHost("crashing.test", after(kLong));
  EXPECT_THAT(crashed.numeric, IsEmpty());
  EXPECT_EQ(crashed.problem, "the lookup was cut off");
}

TEST_F(HostLookupTest, NumbersAndTheLocalHostNeedNoResolver) {
  EXPECT_THAT(lookUpHost("192.0.2.7", after(-1)).numeric, ElementsAre("192.0.2.7"));
  EXPECT_THAT(lookUpHost("2001:db8::7", after(-1)).numeric, ElementsAre("2001:db8::7"));
  EXPECT_THAT(lookUpHost("LocalHost", after(-1)).numeric, ElementsAre("127.0.0.1", "::1"));
  EXPECT_EQ(resolver().process, 0);
}

TEST_F(HostLookupTest, TheResolverHoldsNoneOfTheCallersFiles) {
  std::vector<FileDescriptor> files;
  for (int i = 0; i < 10; ++i) files.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  lookUpHost("slow.test", after(kLong));
  EXPECT_LE(resolver().opened, 5u) << "the standard streams, the pipe, and the list of descriptors";
}

TEST_F(HostLookupTest, TheResolverEndsWithTheProcessThatAsked) {
  const pid_t asking = ::fork();
  if (asking == 0) {
    lookUpHost("silent.test", after(kLong));
    ::_exit(0);
  }
  while (resolver().process == 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  const pid_t looking = resolver().process;
  ASSERT_NE(looking, asking);
  ::kill(asking, SIGKILL);
  ASSERT_EQ(::waitpid(asking, nullptr, 0), asking);
  const auto stillRuns = [&] {
    // A process that has ended is a zombie until init, which adopted it, waits for it.
    std::ifstream status("/proc/" + std::to_string(looking) + "/stat");
    std::string number, name, state;
    return static_cast<bool>(status >> number >> name >> state) && state != "Z" && state != "X";
  };
  while (stillRuns()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST_F(HostLookupTest, SignalsDoNotEndTheWait) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  struct sigaction before {};
  ASSERT_EQ(::sigaction(SIGALRM, &action, &before), 0);
  const itimerval often{{0, 5'000}, {0, 5'000}}, never{};
  ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
  EXPECT_THAT(lookUpHost("slow.test", after(kLong)).numeric, ElementsAre("192.0.2.0"));
  EXPECT_EQ(lookUpHost("silent.test", after(0.1)).problem, "no name server answered in time");
  ASSERT_EQ(::setitimer(ITIMER_REAL, &never, nullptr), 0);
  ASSERT_EQ(::sigaction(SIGALRM, &before, nullptr), 0);
}

TEST_F(HostLookupTest, LookupsWorkWhereChildrenAreIgnored) {
  const auto before = ::signal(SIGCHLD, SIG_IGN);
  EXPECT_THAT(lookUpHost("slow.test", after(kLong)).numeric, ElementsAre("192.0.2.0"));
  EXPECT_EQ(lookUpHost("silent.test", after(0.1)).problem, "no name server answered in time");
  ::signal(SIGCHLD, before);
}

}  // namespace
}  // namespace corvane::pelto
