#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"
#include "tests/loomer/engine/EngineFixture.h"
#include "tests/loomer/engine/MemoryHub.h"

namespace corvane {

/// The line in the system log of a computer that meets such a service.
inline constexpr const char* kPutBack =
    "The online service was put back to an earlier state: it is given again what it lost, and what was "
    "changed there since stands";

/// A computer: a store of its own with one bookmarks client, which syncs with the service.
class Computer {
 public:
  Computer(std::unique_ptr<ScriptedClient> scripted, const std::string& home, MemoryHub& hub)
      : client(std::move(scripted)),
        _manager(std::make_unique<loomer::EmbeddedManager>(loomer::storePathForHome(home))) {
    _manager->useHub([&hub, home] { return hub.connect(home); });
  }

  /// Answers the session's error, empty for a success.
  std::string sync() {
    const LoomerManagerScope current(*_manager);
    return client->sync();
  }
  loomer::TruthStore& store() { return _manager->store(); }
  std::int64_t number(const char* sql) { return store().database().integer(sql, "test"); }
  /// The records' identifiers, the same in every store.
  std::vector<std::string> identifiers() {
    std::vector<std::string> found;
    for (const auto& [identifier, record] : loomer::RecordTable(store()).byGlobalIdentifier())
      found.push_back(identifier.toString());
    std::sort(found.begin(), found.end());
    return found;
  }
  std::string text() const { return client->text(); }
  std::string find(const std::string& name) const { return client->find(name); }

  std::unique_ptr<ScriptedClient> client;

 private:
  std::unique_ptr<loomer::EmbeddedManager> _manager;
};

/// Two computers and an account of the online service.
class ComputersTest : public EngineTest {
 protected:
  explicit ComputersTest(MemoryHub::Kind service) : hub(service) {}

  std::unique_ptr<Computer> makeComputer(const std::string& name) {
    return std::make_unique<Computer>(makeClient(name), platform.directory / ("home of " + name), hub);
  }

  void TearDown() override {
    for (Computer* computer : {a.get(), b.get()}) {
      EXPECT_EQ(loomer::checkStore(computer->store()), std::vector<std::string>());
    }
    EngineTest::TearDown();
  }

  /// Two rounds, after which both computers and the service agree and nothing moves any more.
  void settle() {
    for (int round = 0; round < 2; ++round) {
      ASSERT_EQ(a->sync(), "");
      ASSERT_EQ(b->sync(), "");
    }
    ASSERT_EQ(a->sync(), "");
    EXPECT_EQ(a->text(), b->text());
    const auto revision = hub.state.now.revision;
    ASSERT_EQ(a->sync(), "");
    ASSERT_EQ(b->sync(), "");
    EXPECT_EQ(hub.state.now.revision, revision) << "a session with nothing new changes the service";
    EXPECT_EQ(a->client->delivered.size() + b->client->delivered.size(), 0u);
  }

  /// The service fails at the first `call` from here on.
  void failOnce(const std::string& call) {
    hub.onCall = [this, call](const std::string& now) {
      if (now != call) return;
      hub.onCall = nullptr;
      failAsService("it was cut off.");
    };
  }

  void expectAlone(int times = 1, const std::string& reason = "it was cut off.") {
    for (int i = 0; i < times; ++i) {
      platform.log.expectMessages(
          {"Bookmarks were synced on this computer alone, not with the online service: " + reason});
    }
  }

  MemoryHub hub;
  std::unique_ptr<Computer> a = makeComputer("a"), b = makeComputer("b");
};

/// The same over each kind of service.
class HubTest : public ComputersTest, public testing::WithParamInterface<MemoryHub::Kind> {
 protected:
  HubTest() : ComputersTest(GetParam()) {}

  /// That many records on the first computer, in folders of a hundred records each, since an edit looks at
  /// all siblings. Answers the ids of the bookmarks.
  std::vector<std::string> bookmarkMuch(int records) {
    std::vector<std::string> bookmarks;
    std::string folder;
    for (int i = 0; i < records; ++i) {
      const std::string name = std::to_string(i);
      if (i % 100 == 0) {
        folder = a->client->addFolder("", name);
      } else {
        bookmarks.push_back(a->client->addBookmark(folder, name, "http://x/"));
      }
    }
    return bookmarks;
  }
};

inline std::string nameOfService(const testing::TestParamInfo<MemoryHub::Kind>& info) {
  return info.param == MemoryHub::Kind::table ? "Table" : "Chain";
}

#define CORVANE_OVER_EACH_SERVICE(Fixture)                                                                 \
  INSTANTIATE_TEST_SUITE_P(Over, Fixture, testing::Values(MemoryHub::Kind::table, MemoryHub::Kind::chain), \
                           nameOfService)

}  // namespace corvane
