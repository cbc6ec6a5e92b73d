#include "tests/laws/EngineHome.h"

#include <stdexcept>
#include <system_error>

#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"

namespace corvane {

EngineHome::EngineHome() : storePath(loomer::storePathForHome(platform.process.home)) {
  FakeBundle browser;
  browser.location = platform.directory / "install/Corvane.app";
  platform.bundles.byIdentifier["com.keldra.Corvane"] = browser;
  descriptionPath = browser.location + "/CorvaneClientDescription.plist";
  platform.bundles.own.resources["CorvaneClientDescription.plist"] = descriptionPath;
  install("CorvaneClientDescription.plist", descriptionPath);
  install("Corvane.syncschema", platform.directory / ("install" + std::string(kSchema)));
  open();
}

void EngineHome::install(const std::string& resource, const std::string& to) {
  std::string bytes;
  const std::string from = std::string(CORVANE_RESOURCES) + "/" + resource;
  if (const auto error = platform.realFiles.read(from, bytes)) throw std::system_error(error, from);
  platform.makeDirectories(to.substr(0, to.rfind('/')));
  if (const auto error = platform.realFiles.write(to, bytes)) throw std::system_error(error, to);
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

void EngineHome::requireSound() {
  const std::vector<std::string> problems = loomer::checkStore(store());
  if (!problems.empty()) throw std::logic_error("the store is unsound: " + problems.front());
}

}  // namespace corvane
