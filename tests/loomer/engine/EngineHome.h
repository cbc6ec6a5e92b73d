#pragma once

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/loomer/engine/ScriptedClient.h"

namespace corvane {

/// An installation with the real resources. Of the platform, everything but the clock and the uids is real.
class EngineInstallation {
 public:
  /// `platform` must outlive this object.
  explicit EngineInstallation(FakePlatform& platform);
  EngineInstallation(const EngineInstallation&) = delete;
  EngineInstallation& operator=(const EngineInstallation&) = delete;

  /// A client that is described as the browser is.
  std::unique_ptr<ScriptedClient> makeClient(const std::string& identifier) const;

  std::string descriptionPath;
  std::string schemaPath;
};

/// Copies the store in a directory as a process that is killed now leaves it. Replaces what is in `to`.
void copyStore(const std::string& from, const std::string& to);

/// Raises std::logic_error if the store has a fault: the truth is no forest, or a base names what is not.
void requireSound(loomer::TruthStore& store);

/// One user's home with the embedded engine over a store in it.
class EngineHome : public EngineInstallation {
 public:
  explicit EngineHome(FakePlatform& platform);

  /// Closes the engine and opens it again, as between two runs of the tool.
  void open();
  void close();
  bool isOpen() const { return _manager != nullptr; }
  loomer::EmbeddedManager& manager() { return *_manager; }
  loomer::TruthStore& store() { return _manager->store(); }

  const std::string storePath;

 private:
  std::unique_ptr<loomer::EmbeddedManager> _manager;
  std::unique_ptr<LoomerManagerScope> _scope;
};

}  // namespace corvane
