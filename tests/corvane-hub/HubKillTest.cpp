#include "tests/corvane-hub/HubKillTest.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/corvane-hub/HubClient.h"

namespace corvane {

namespace {

/// What stands under a name, told by the name alone.
std::string contentsOf(const std::string& name) {
  std::mt19937 random(static_cast<unsigned>(std::hash<std::string>()(name)));
  std::string bytes(random() % 150'000, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

/// The names in a listing that came whole.
std::vector<std::string> namesIn(const std::string& listing) {
  EXPECT_TRUE(listing.ends_with("end\n"));
  std::vector<std::string> names;
  std::istringstream lines(listing);
  for (std::string bytes, date, name; lines >> bytes >> date >> name;) names.push_back(name);
  return names;
}

/// Several writers that make and remove objects until the server is gone, and what was acknowledged.
class Load {
 public:
  Load(int port, const std::vector<std::string>& tokens, int round) {
    _running = static_cast<int>(tokens.size());
    for (std::size_t i = 0; i < tokens.size(); ++i) {
      _writers.emplace_back(
          [this, port, token = tokens[i], prefix = std::to_string(round) + "-" + std::to_string(i) + "-"] {
            try {
              HubClient client(port, token);
              for (int n = 0;; ++n)
                write(client, "f" + std::to_string(n % 3) + "/" + prefix + std::to_string(n), n);
            } catch (const ConnectionEnded&) {
              // the server was killed
            }
            --_running;
          });
    }
  }
  /// Returns once so much was acknowledged; false when no writer is left before that.
  bool await(int answers) const {
    while (_answers < answers && _running > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return _answers >= answers;
  }
  void join() {
    for (std::thread& writer : _writers) writer.join();
  }

  std::set<std::string> made;
  std::set<std::string> removed;

 private:
  void write(HubClient& client, const std::string& name, int n) {
    if (client.putNew("/v1/o/" + name, contentsOf(name)).status != 201) throw ConnectionEnded("not made");
    note(made, name);
    if (n % 4 != 3) return;
    {
      const std::lock_guard lock(_mutex);
      made.erase(name);
    }
    if (client.remove("/v1/o/" + name).status == 204) note(removed, name);
  }
  void note(std::set<std::string>& set, const std::string& name) {
    const std::lock_guard lock(_mutex);
    set.insert(name);
    ++_answers;
  }

  std::mutex _mutex;
  std::atomic<int> _answers = 0;
  std::atomic<int> _running = 0;
  std::vector<std::thread> _writers;
};

TEST_F(HubKill, NothingAcknowledgedIsLostAndNothingIsHalf) {
  std::vector<std::string> tokens{token};
  for (int i = 1; i < 4; ++i)
    tokens.push_back(accountCommand(directory.path(), {"token", "ada", "c" + std::to_string(i)}));
  const std::string reader = accountCommand(directory.path(), {"token", "ada", "reader"});
  std::mt19937 random(1);
  std::set<std::string> made;
  std::set<std::string> removed;
  for (int round = 0; round < 12; ++round) {
    HubProcess hub(directory.path());
    Load load(hub.port(), tokens, round);
    const bool wrote = load.await(static_cast<int>(5 + random() % 40));
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
    hub.kill();
    load.join();
    ASSERT_TRUE(wrote);
    made.merge(load.made);
    removed.merge(load.removed);
    expectRightUsage();
  }
  const HubProcess hub(directory.path());
  HubClient client(hub.port(), reader);
  std::set<std::string> there;
  for (const char* folder : {"f0", "f1", "f2"}) {
    for (const std::string& name : namesIn(client.get(std::string("/v1/list/") + folder).body))
      there.insert(name);
  }
  for (const std::string& name : made) EXPECT_TRUE(there.contains(name)) << name;
  for (const std::string& name : removed) EXPECT_FALSE(there.contains(name)) << name;
  const std::string objects = account() + "/objects/";
  for (const std::string& name : there) {
    const std::string contents = contentsOf(name);
    ASSERT_EQ(std::filesystem::file_size(objects + name), contents.size()) << name;
    EXPECT_EQ(HubClient(hub.port(), tokens[there.size() % 4]).get("/v1/o/" + name).body, contents) << name;
  }
}

}  // namespace

}  // namespace corvane
