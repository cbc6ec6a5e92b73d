#include "tests/loomer/engine/EngineHome.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"

namespace corvane {

namespace {

// Where clients say that the schema of their records is.
constexpr const char* kSchema =
    "/System/Library/PrivateFrameworks/Quillet.framework/Resources/Corvane.syncschema";

void install(FakePlatform& platform, const std::string& resource, const std::string& to) {
  std::string bytes;
  const std::string from = std::string(CORVANE_RESOURCES) + "/" + resource;
  if (const auto error = platform.realFiles.read(from, bytes)) throw std::system_error(error, from);
  platform.makeDirectories(to.substr(0, to.rfind('/')));
  if (const auto error = platform.realFiles.write(to, bytes)) throw std::system_error(error, to);
}

}  // namespace

EngineInstallation::EngineInstallation(FakePlatform& platform) {
  FakeBundle browser;
  platform.uuids.inForm = true;
  browser.location = platform.directory / "install/Corvane.app";
  platform.bundles.byIdentifier["com.keldra.Corvane"] = browser;
  descriptionPath = browser.location + "/CorvaneClientDescription.plist";
  platform.bundles.own.resources["CorvaneClientDescription.plist"] = descriptionPath;
  schemaPath = platform.directory / ("install" + std::string(kSchema));
  install(platform, "CorvaneClientDescription.plist", descriptionPath);
  install(platform, "Corvane.syncschema", schemaPath);
}

std::unique_ptr<ScriptedClient> EngineInstallation::makeClient(const std::string& identifier) const {
  auto client = std::make_unique<ScriptedClient>(identifier);
  client->description = Url{"file://" + descriptionPath};
  client->schema = Url{"file://" + std::string(kSchema)};
  return client;
}

// The file of shared memory is made anew from the others.
void copyStore(const std::string& from, const std::string& to) {
  namespace fs = std::filesystem;
  fs::remove_all(to);
  fs::create_directory(to);
  for (const auto& each : fs::directory_iterator(from)) {
    if (each.path().string().ends_with("-shm")) continue;
    fs::copy_file(each.path(), fs::path(to) / each.path().filename());
  }
}

void requireSound(loomer::TruthStore& store) {
  const std::vector<std::string> problems = loomer::checkStore(store);
  if (!problems.empty()) throw std::logic_error("the store is unsound: " + problems.front());
}

EngineHome::EngineHome(FakePlatform& platform)
    : EngineInstallation(platform), storePath(loomer::storePathForHome(platform.process.home)) {
  open();
}

void EngineHome::close() {
  _scope.reset();
  _manager.reset();
}

void EngineHome::open() {
  close();
  _manager = std::make_unique<loomer::EmbeddedManager>(storePath);
  _scope = std::make_unique<LoomerManagerScope>(*_manager);
}

}  // namespace corvane
