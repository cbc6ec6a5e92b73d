#pragma once

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {

/// One user's home with the embedded engine over a store in it, and an installation with the real resources.
/// Everything but the clock and the uids is real. For histories that need a fresh home each.
class EngineHome {
 public:
  EngineHome();
  EngineHome(const EngineHome&) = delete;
  EngineHome& operator=(const EngineHome&) = delete;

  /// Closes the engine and opens it again, as between two runs of the tool.
  void open();
  void close();
  loomer::TruthStore& store() { return _manager->store(); }
  /// Raises std::logic_error if the store has a fault: the truth is no forest, or a base names what is not.
  void requireSound();

  FakePlatform platform;
  std::string storePath;
  std::string descriptionPath;

  /// Where clients say that the schema of their records is.
  static constexpr const char* kSchema =
      "/System/Library/PrivateFrameworks/Quillet.framework/Resources/Corvane.syncschema";

 private:
  void install(const std::string& resource, const std::string& to);

  std::unique_ptr<loomer::EmbeddedManager> _manager;
  std::unique_ptr<LoomerManagerScope> _scope;
};

}  // namespace corvane
