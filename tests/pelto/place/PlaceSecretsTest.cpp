#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/account/Account.h"
#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"
#include "CorvaneSyncClient/platform/pelto/place/MakePlace.h"
#include "CorvaneSyncClient/platform/pelto/place/PlaceException.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/pelto/place/ScriptedServer.h"

// What opens a place is nowhere in this process's memory once the place and its credentials are gone. Nothing
// that is freed is used again here, so that it stays as it was left.
extern "C" void free(void* /*memory*/) noexcept {}

extern "C" void* realloc(void* memory, std::size_t size) noexcept {
  void* const larger = std::malloc(size);
  if (larger && memory) std::memcpy(larger, memory, std::min(size, ::malloc_usable_size(memory)));
  return larger;
}

namespace corvane::pelto {
namespace {

constexpr const char* kUser = "alice";
constexpr char kMask = 0x55;
constexpr std::size_t kBlock = 1 << 20;

/// A text that stands in the memory of this process in another form alone.
class MaskedText {
 public:
  explicit MaskedText(std::string_view text) {
    for (const char each : text) _masked += static_cast<char>(each ^ kMask);
  }
  static MaskedText random() {
    MaskedText text("");
    std::random_device device;
    for (int i = 0; i < 40; ++i) text._masked += static_cast<char>(('a' + device() % 26) ^ kMask);
    return text;
  }

  /// To be wiped.
  std::string shown() const {
    std::string text(_masked.size(), '\0');
    std::transform(_masked.begin(), _masked.end(), text.begin(),
                   [](char each) { return static_cast<char>(each ^ kMask); });
    return text;
  }
  bool isAt(const char* bytes) const {
    return std::equal(_masked.begin(), _masked.end(), bytes,
                      [](char masked, char byte) { return masked == (byte ^ kMask); });
  }
  std::size_t size() const { return _masked.size(); }
  int first() const { return static_cast<unsigned char>(_masked[0] ^ kMask); }

 private:
  std::string _masked;
};

struct Region {
  std::uint64_t begin = 0, end = 0;
};

std::vector<Region> writtenRegions() {
  std::ifstream maps("/proc/self/maps");
  std::vector<Region> regions;
  for (std::string line; std::getline(maps, line);) {
    Region region;
    char dash = 0;
    std::string rights;
    std::istringstream(line) >> std::hex >> region.begin >> dash >> region.end >> rights;
    if (rights.starts_with("rw")) regions.push_back(region);
  }
  return regions;
}

/// How often the text stands in what this process has written and can read.
int timesInMemory(const MaskedText& text) {
  static std::vector<char> block(kBlock);
  const auto own = reinterpret_cast<std::uint64_t>(block.data());
  const FileDescriptor memory(::open("/proc/self/mem", O_RDONLY | O_CLOEXEC));
  int times = 0;
  for (const Region& region : writtenRegions()) {
    // Blocks overlap by what a text that they cut would need.
    for (std::uint64_t at = region.begin; at < region.end; at += kBlock - text.size()) {
      const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, region.end - at));
      std::fill(block.begin(), block.end(), '\0');
      const ssize_t count = ::pread(memory.number(), block.data(), wanted, static_cast<off_t>(at));
      const char* const end = block.data() + std::max<ssize_t>(0, count);
      for (const char* from = block.data(); from + text.size() <= end; ++from) {
        from = static_cast<const char*>(::memchr(from, text.first(), static_cast<std::size_t>(end - from)));
        if (!from || from + text.size() > end) break;
        const std::uint64_t address = at + static_cast<std::uint64_t>(from - block.data());
        times += text.isAt(from) && (address < own || address >= own + kBlock) ? 1 : 0;
      }
    }
  }
  std::fill(block.begin(), block.end(), '\0');
  return times;
}

/// A server in a process of its own, so that what it is sent is not in this one. Under "/digest" it asks for
/// HTTP's Digest scheme; there is nothing at all.
class ServerElsewhere {
 public:
  ServerElsewhere() {
    int ends[2];
    if (::pipe(ends) != 0 || (_process = ::fork()) < 0) throw std::runtime_error("no process for a server");
    if (_process == 0) {
      const ScriptedServer server(&answer);
      const int port = server.port();
      if (::write(ends[1], &port, sizeof port) != sizeof port) ::_exit(1);
      while (true) ::pause();
    }
    const bool isTold = ::read(ends[0], &_port, sizeof _port) == sizeof _port;
    for (const int end : ends) ::close(end);
    if (!isTold) throw std::runtime_error("the server does not start");
  }
  ~ServerElsewhere() {
    ::kill(_process, SIGKILL);
    ::waitpid(_process, nullptr, 0);
  }
  ServerElsewhere(const ServerElsewhere&) = delete;
  ServerElsewhere& operator=(const ServerElsewhere&) = delete;

  std::string host() const { return "127.0.0.1:" + std::to_string(_port); }

 private:
  static void answer(const std::string& request, ScriptedConnection& connection) {
    const bool isDigest = request.find(" /digest/") != std::string::npos &&
                          request.find("Authorization: Digest ") == std::string::npos;
    connection.send(
        isDigest ? httpAnswer("401 Unauthorized", "",
                              "WWW-Authenticate: Digest realm=\"places\", nonce=\"4711\", qop=\"auth\"\r\n")
                 : httpAnswer("404 Not Found", "nothing"));
  }

  pid_t _process = -1;
  int _port = 0;
};

class PlaceSecretsTest : public testing::TestWithParam<const char*> {
 protected:
  std::string address() const {
    const std::string kind = GetParam();
    if (kind == "hub") return "hub://" + server.host() + "?tls=no";
    if (kind == "s3") return "s3://bucket?endpoint=http://" + server.host();
    return "http://" + server.host() + '/' + kind;
  }

  const ServerElsewhere server;
  const MaskedText secret = MaskedText::random();
  FakePlatform platform;
};

INSTANTIATE_TEST_SUITE_P(Kinds, PlaceSecretsTest, testing::Values("hub", "s3", "basic", "digest"),
                         [](const auto& kind) { return std::string(kind.param); });

TEST_P(PlaceSecretsTest, StayAsLongAsTheyAreNeeded) {
  {
    std::string shown = secret.shown();
    const PlaceCredentials credentials{kUser, SharedSecret(shown)};
    wipe(shown);
    const auto place = makePlace(parsePlaceAddress(address()), credentials, after(60));
    EXPECT_EQ(place->get({{"f/1", Writing::contested, {}, 100}}).front().state, GetAnswer::State::absent);
    EXPECT_THROW(place->putNew("f/1", "x"), PlaceException);
    EXPECT_GE(timesInMemory(secret), 1) << "this shows that it would be found";
  }
  EXPECT_EQ(timesInMemory(secret), 0);
  std::string shown = secret.shown(), basic = basicAuthorization(kUser, shown);
  const MaskedText proof(basic);
  wipe(shown);
  wipe(basic);
  EXPECT_EQ(timesInMemory(proof), 0);
}

TEST(AccountSecretsTest, StayAsLongAsTheAccount) {
  const MaskedText secret = MaskedText::random();
  const FakePlatform platform;
  const std::string path = accountPathForHome(platform.process.home);
  {
    std::string shown = secret.shown();
    Membership membership{{kUser, SharedSecret(shown)},
                          "A1C0B5A0-0F3D-4F7C-9B59-1F1B7F1F2A01",
                          1,
                          std::make_shared<AccountKey>(AccountKey::random()),
                          std::make_shared<ComputerKeys>(ComputerKeys::random()),
                          "first",
                          {},
                          {}};
    wipe(shown);
    writeAccount(path,
                 {"https://alice@dav.example.com/b", "C0000000-0000-4000-8000-000000000001", {}, membership});
    const auto account = readAccount(path);
    ASSERT_TRUE(account);
    EXPECT_TRUE(secret.isAt(account->membership.credentials.secret.view().data()));
    changeMembership(path, *account, [](Membership& each) { each.name = "second"; });
  }
  EXPECT_EQ(timesInMemory(secret), 0);
}

}  // namespace
}  // namespace corvane::pelto
