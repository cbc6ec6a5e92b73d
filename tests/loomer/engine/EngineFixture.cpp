#include "tests/loomer/engine/EngineFixture.h"

#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"

namespace corvane {

namespace {
constexpr const char* kSchema =
    "/System/Library/PrivateFrameworks/Quillet.framework/Resources/Corvane.syncschema";
}

EngineTest::EngineTest() {
  platform.process.home = platform.directory / "home";
  platform.uuids.inForm = true;
  storePath = loomer::storePathForHome(platform.process.home);
  FakeBundle browser;
  browser.location = platform.directory / "install/Corvane.app";
  platform.bundles.byIdentifier["com.keldra.Corvane"] = browser;
  descriptionPath = browser.location + "/CorvaneClientDescription.plist";
  schemaPath = platform.directory / ("install" + std::string(kSchema));
  platform.makeDirectories(browser.location);
  platform.makeDirectories(schemaPath.substr(0, schemaPath.rfind('/')));
  platform.realFiles.write(descriptionPath, contents(resource("CorvaneClientDescription.plist")));
  platform.realFiles.write(schemaPath, contents(resource("Corvane.syncschema")));
  reopen();
}

void EngineTest::TearDown() {
  if (!_manager) reopen();
  EXPECT_EQ(loomer::checkStore(store()), std::vector<std::string>());
}

void EngineTest::close() {
  _scope.reset();
  _manager.reset();
}

void EngineTest::reopen() {
  close();
  _manager = std::make_unique<loomer::EmbeddedManager>(storePath);
  _scope = std::make_unique<LoomerManagerScope>(*_manager);
}

std::unique_ptr<ScriptedClient> EngineTest::makeClient(const std::string& identifier) {
  auto client = std::make_unique<ScriptedClient>(identifier);
  client->description = Url{"file://" + descriptionPath};
  client->schema = Url{"file://" + std::string(kSchema)};
  return client;
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
