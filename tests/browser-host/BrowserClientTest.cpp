#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "browsers/host/BrowserClient.h"
#include "tests/browser-host/HostFixture.h"

namespace corvane {
namespace {

class BrowserClientTest : public HostTest {};

// A browser's client that counts the records that the engine has it make.
class CountingClient : public browsers::BrowserClient {
 public:
  using BrowserClient::BrowserClient;

  Dictionary recordsForEntityName(const String& entityName, bool& moreComing, String& error) override {
    Dictionary given = BrowserClient::recordsForEntityName(entityName, moreComing, error);
    records += given.size();
    return given;
  }
  Dictionary recordsAt(const String& entityName, const std::vector<std::size_t>& places) override {
    Dictionary given = BrowserClient::recordsAt(entityName, places);
    records += given.size();
    return given;
  }

  std::size_t records = 0;
};

TEST_F(BrowserClientTest, OneEditAmongManyIsTakenAlone) {
  constexpr int kMany = 10'000;
  browsers::HeldTree held;
  for (int i = 0; i < kMany; ++i) {
    const std::string id = "n" + std::to_string(i);
    browsers::HeldNode node;
    node.localId = id;
    node.title.edit(id);
    node.url.edit("http://" + id + "/");
    held.add(std::move(node));
  }
  held.number();
  browsers::BrowserClient::State state{held, {}, 0, true};
  // How many records a session takes, and what it does to the truth.
  const auto session = [&](bool isEdited) {
    state.isEdited = isEdited;
    CountingClient client("com.keldra.browser.x", home.descriptionPath, state, {1, 0.0},
                          [&](const browsers::HeldTree&) { return state.generation + 1; });
    const auto driver = LoomerSessionDriver::sessionDriverWithDataSource(client);
    EXPECT_TRUE(driver->sync()) << driver->lastError().inEnglish();
    return std::pair(client.records, driver->lastResult().pushed);
  };
  EXPECT_EQ(session(true), std::pair(std::size_t{kMany}, std::size_t{kMany}));
  EXPECT_EQ(session(false), std::pair(std::size_t{0}, std::size_t{0}));
  held.find("n77")->title.edit("another");
  EXPECT_EQ(session(true), std::pair(std::size_t{1}, std::size_t{1}));
  held.find("n78")->url.edit("http://another/");
  held.find("n9000")->title.edit("another");
  EXPECT_EQ(session(true), std::pair(std::size_t{2}, std::size_t{2}));
}

}  // namespace
}  // namespace corvane
