#include "tests/loomer/engine/EngineFixture.h"

#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"
#include "tests/loomer/engine/QueryPlans.h"

namespace corvane {

void EngineTest::TearDown() {
  if (!_home.isOpen()) reopen();
  EXPECT_EQ(loomer::checkStore(store()), std::vector<std::string>());
  EXPECT_EQ(takeNestedScans(storePath), std::vector<std::string>());
}

void EngineTest::settle(std::initializer_list<ScriptedClient*> clients) {
  for (int round = 0; round < 3; ++round) {
    for (ScriptedClient* client : clients) ASSERT_EQ(client->sync(), "");
  }
}

std::string EngineTest::resource(const std::string& name) {
  return std::string(CORVANE_RESOURCES) + "/" + name;
}

std::string EngineTest::contents(const std::string& path) {
  LinuxFileSystem files;
  std::string bytes;
  EXPECT_FALSE(files.read(path, bytes)) << path;
  return bytes;
}

}  // namespace corvane
