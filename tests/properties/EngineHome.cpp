#include "tests/properties/EngineHome.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"

namespace corvane {

EngineInstallation::EngineInstallation() {
  FakeBundle browser;
  platform.uuids.inForm = true;
  browser.location = platform.directory / "install/Corvane.app";
  platform.bundles.byIdentifier["com.keldra.Corvane"] = browser;
  descriptionPath = browser.location + "/CorvaneClientDescription.plist";
  platform.bundles.own.resources["CorvaneClientDescription.plist"] = descriptionPath;
  install("CorvaneClientDescription.plist", descriptionPath);
  install("Corvane.syncschema", platform.directory / ("install" + std::string(kSchema)));
}

void EngineInstallation::install(const std::string& resource, const std::string& to) {
  std::string bytes;
  const std::string from = std::string(CORVANE_RESOURCES) + "/" + resource;
  if (const auto error = platform.realFiles.read(from, bytes)) throw std::system_error(error, from);
  platform.makeDirectories(to.substr(0, to.rfind('/')));
  if (const auto error = platform.realFiles.write(to, bytes)) throw std::system_error(error, to);
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

EngineHome::EngineHome() : storePath(loomer::storePathForHome(platform.process.home)) { open(); }

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
