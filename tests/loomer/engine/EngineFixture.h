#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/fakes/StrictPlatform.h"
#include "tests/loomer/engine/EngineHome.h"

namespace corvane {

/// An engine over a store in a fresh directory, an installation with the real resources beside it, and
/// clients.
class EngineTest : public testing::Test {
 protected:
  /// After every test the whole store must be sound, the truth a forest, and no statement may have looked
  /// through a table again and again.
  void TearDown() override;

  /// Closes the engine and opens it again, as between two runs of the tool.
  void reopen() { _home.open(); }
  void close() { _home.close(); }
  std::unique_ptr<ScriptedClient> makeClient(const std::string& identifier) const {
    return _home.makeClient(identifier);
  }
  loomer::EmbeddedManager& manager() { return _home.manager(); }
  loomer::TruthStore& store() { return _home.store(); }
  std::int64_t number(const char* sql) { return store().database().integer(sql, "test"); }
  /// Runs each client's sessions until none of them changes anything.
  void settle(std::initializer_list<ScriptedClient*> clients);
  static std::string resource(const std::string& name);
  static std::string contents(const std::string& path);

  StrictPlatform platform;

 private:
  EngineHome _home{platform};

 protected:
  const std::string& storePath = _home.storePath;
  const std::string& descriptionPath = _home.descriptionPath;
  const std::string& schemaPath = _home.schemaPath;
};

}  // namespace corvane
