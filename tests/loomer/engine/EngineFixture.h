#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "CorvaneSyncClient/platform/loomer/EmbeddedManager.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/loomer/engine/ScriptedClient.h"

namespace corvane {

/// An engine over a store in a fresh directory, an installation with the real resources beside it, and
/// clients.
class EngineTest : public testing::Test {
 protected:
  EngineTest();
  /// After every test the whole store must be sound, and the truth a forest.
  void TearDown() override;

  /// Closes the engine and opens it again, as between two runs of the tool.
  void reopen();
  void close();
  std::unique_ptr<ScriptedClient> makeClient(const std::string& identifier);
  loomer::EmbeddedManager& manager() { return *_manager; }
  loomer::TruthStore& store() { return _manager->store(); }
  std::int64_t number(const char* sql) { return store().database().integer(sql, "test"); }
  /// Runs each client's sessions until none of them changes anything.
  void settle(std::initializer_list<ScriptedClient*> clients);
  static std::string resource(const std::string& name);
  static std::string contents(const std::string& path);

  StrictPlatform platform;
  std::string storePath;
  std::string descriptionPath;
  std::string schemaPath;

 private:
  std::unique_ptr<loomer::EmbeddedManager> _manager;
  std::unique_ptr<LoomerManagerScope> _scope;
};

}  // namespace corvane
