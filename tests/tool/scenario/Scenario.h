#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Value.h"

namespace corvane::scenario {

/// A scenario that cannot be run. Its text names the key, as in "Steps[2].Type: an integer is missing".
class MalformedScenario : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A call of the engine that a step makes.
enum class Call {
  didRegister,
  preferredSyncMode,
  records,
  changedRecords,
  applyChange,
  deleteAllRecords,
  didPull,
  willFinish,
  willCancel,
};

/// One call of the engine. The fields after `name` are there for the calls that have them.
struct ScenarioStep {
  Call call = Call::didRegister;
  String name;    ///< of the call
  String entity;  ///< as the engine names it
  int type = 0;
  String identifier;
  std::optional<Dictionary> record;  ///< with the constants' values as keys
};

/// What the browser does to its file while a session runs.
struct BrowserWrite {
  std::optional<Dictionary> bookmarks;  ///< absent: the file is deleted
  std::optional<Date> date;             ///< the file's modification date; absent: that of the writing
};

/// A scripted session and what it starts from.
struct Scenario {
  String clientId;
  std::optional<Dictionary> bookmarks;
  Date bookmarksDate;
  Dictionary clientValues;
  Dictionary preferences;
  std::vector<String> uuids;
  std::vector<ScenarioStep> steps;
  std::vector<BrowserWrite> browserWrites;
  bool sessionResult = true;
  String sessionError;
};

/// Reads a scenario. Raises MalformedScenario for keys that are unknown, missing or of the wrong type.
Scenario readScenario(const Value& value);

}  // namespace corvane::scenario
