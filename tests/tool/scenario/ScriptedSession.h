#pragma once

#include <optional>
#include <vector>

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "tests/session/ScriptedLoomer.h"
#include "tests/tool/scenario/Scenario.h"

namespace corvane::scenario {

/// Makes a scenario's steps the script of an engine, and keeps their results.
class ScriptedSession {
 public:
  /// Both must outlive this object.
  ScriptedSession(const Scenario& scenario, ScriptedLoomer& loomer);
  ScriptedSession(const ScriptedSession&) = delete;
  ScriptedSession& operator=(const ScriptedSession&) = delete;

  /// One dictionary for each step made, the one that raised included.
  Array results() const { return Array(_results); }
  /// The working map after the last step made; nothing when there was no session.
  const std::optional<Dictionary>& workingMap() const { return _workingMap; }

 private:
  bool run(LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver& driver);
  void make(const ScenarioStep& step, LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver& driver);

  const Scenario& _scenario;
  std::vector<Value> _results;
  std::optional<Dictionary> _workingMap;
};

}  // namespace corvane::scenario
