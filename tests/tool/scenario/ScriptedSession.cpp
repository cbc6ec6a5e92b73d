#include "tests/tool/scenario/ScriptedSession.h"

#include "CorvaneSyncClient/model/CorvaneBookmarkFolder.h"
#include "CorvaneSyncClient/model/CorvaneBookmarkRecord.h"
#include "CorvaneSyncClient/session/SessionDriverController.h"
#include "tests/tool/scenario/RecordNames.h"

namespace corvane::scenario {

namespace {

Dictionary describedRecords(const Dictionary& records) {
  Dictionary described;
  for (const auto& entry : records) described.set(entry.key, recordForResult(*entry.value.as<Dictionary>()));
  return described;
}

void setIfPresent(Dictionary& dictionary, const char* key, const String& text) {
  if (text) dictionary.set(key, text);
}

void describeFolder(const CorvaneBookmarkFolder& folder, Dictionary& node) {
  node.set("AutoTab", folder.autoTab());
  if (const std::vector<String>* children = folder.children()) {
    node.set("Children", Array(std::vector<Value>(children->begin(), children->end())));
  }
}

Dictionary describedNode(const CorvaneBookmark& bookmark) {
  Dictionary node{{"Class", bookmark.asFolder() ? "Folder" : "Bookmark"}};
  setIfPresent(node, "Title", bookmark.title());
  setIfPresent(node, "ParentId", bookmark.parentId());
  node.set("Position", bookmark.position());
  node.set("Special", bookmark.special());
  node.set("Ignored", bookmark.isIgnoredBySync());
  if (const CorvaneBookmarkFolder* folder = bookmark.asFolder()) describeFolder(*folder, node);
  if (const CorvaneBookmarkRecord* record = bookmark.asRecord()) setIfPresent(node, "URL", record->url());
  return node;
}

Dictionary describedMap(const BookmarkMap& map) {
  Dictionary described;
  for (const auto& entry : map) {
    const CorvaneBookmark* const node = entry.value.node.get();
    described.set(entry.key, node ? Value(describedNode(*node)) : Value(entry.key));
  }
  return described;
}

// Describes the working map when the session ends, however it ends.
class MapDescription {
 public:
  MapDescription(const LoomerSessionDriverDataSource& dataSource, std::optional<Dictionary>& description)
      : _controller(dynamic_cast<const SessionDriverController&>(dataSource)), _description(description) {}
  ~MapDescription() {
    if (const BookmarkMap* map = _controller.currentBookmarkDictionary()) _description = describedMap(*map);
  }
  MapDescription(const MapDescription&) = delete;
  MapDescription& operator=(const MapDescription&) = delete;

 private:
  const SessionDriverController& _controller;
  std::optional<Dictionary>& _description;
};

}  // namespace

ScriptedSession::ScriptedSession(const Scenario& scenario, ScriptedLoomer& loomer) : _scenario(scenario) {
  loomer.script = [this](LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver& driver) {
    return run(dataSource, driver);
  };
}

bool ScriptedSession::run(LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver& driver) {
  const MapDescription description(dataSource, _workingMap);
  for (const ScenarioStep& step : _scenario.steps) make(step, dataSource, driver);
  return _scenario.sessionResult;
}

void ScriptedSession::make(const ScenarioStep& step, LoomerSessionDriverDataSource& dataSource,
                           LoomerSessionDriver& driver) {
  bool moreComing = false;
  String error;
  String remapped;
  const auto answer = [&]() -> std::optional<Value> {
    switch (step.call) {
      case Call::didRegister:
        return dataSource.sessionDriverDidRegisterClient(driver, error);
      case Call::preferredSyncMode:
        return dataSource.preferredSyncModeForEntityName(step.entity);
      case Call::records:
        return describedRecords(dataSource.recordsForEntityName(step.entity, moreComing, error));
      case Call::changedRecords:
        return describedRecords(dataSource.changedRecordsForEntityName(step.entity, moreComing, error));
      case Call::applyChange:
        return dataSource.applyChange(LoomerChange(step.type, step.identifier, step.record), step.entity,
                                      remapped, nullptr, error);
      case Call::deleteAllRecords:
        return dataSource.deleteAllRecordsForEntityName(step.entity, error);
      case Call::didPull:
        return dataSource.sessionDriverDidPull(driver, error);
      case Call::willFinish:
        return dataSource.sessionDriverWillFinishSession(driver, error);
      case Call::willCancel:
        dataSource.sessionDriverWillCancelSession(driver);
        return std::nullopt;
    }
    return std::nullopt;
  };
  Dictionary result{{"Call", step.name}};
  _results.emplace_back(result);  // stands as it is if the step raises
  const std::optional<Value> answered = answer();
  if (answered) result.set("Answer", *answered);
  setIfPresent(result, "Remapped", remapped);
  _results.back() = result;
}

}  // namespace corvane::scenario
