#pragma once

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"
#include "tests/fakes/FakePlatform.h"

namespace corvane {

/// An installation with the real resources. Everything but the clock and the uids is real.
class EngineInstallation {
 public:
  EngineInstallation();
  EngineInstallation(const EngineInstallation&) = delete;
  EngineInstallation& operator=(const EngineInstallation&) = delete;

  FakePlatform platform;
  std::string descriptionPath;

  /// Where clients say that the schema of their records is.
  static constexpr const char* kSchema =
      "/System/Library/PrivateFrameworks/Quillet.framework/Resources/Corvane.syncschema";

 private:
  void install(const std::string& resource, const std::string& to);
};

/// Copies the store in a directory as a process that is killed now leaves it. Replaces what is in `to`.
void copyStore(const std::string& from, const std::string& to);

/// Raises std::logic_error if the store has a fault: the truth is no forest, or a base names what is not.
void requireSound(loomer::TruthStore& store);

/// One user's home with the embedded engine over a store in it. For histories that need a fresh home each.
class EngineHome : public EngineInstallation {
 public:
  EngineHome();

  /// Closes the engine and opens it again, as between two runs of the tool.
  void open();
  void close();
  loomer::TruthStore& store() { return _manager->store(); }
  void requireSound() { corvane::requireSound(store()); }

  std::string storePath;

 private:
  std::unique_ptr<loomer::EmbeddedManager> _manager;
  std::unique_ptr<LoomerManagerScope> _scope;
};

}  // namespace corvane
