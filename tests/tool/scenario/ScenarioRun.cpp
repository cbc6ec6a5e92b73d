#include "tests/tool/scenario/ScenarioRun.h"

#include <filesystem>
#include <memory>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"
#include "tests/fakes/FakePlatform.h"
#include "tests/fakes/Files.h"
#include "tests/session/ScriptedLoomer.h"
#include "tests/tool/scenario/ScriptedSession.h"

namespace corvane::scenario {

namespace {

constexpr const char* kDomain = "com.keldra.Corvane";
constexpr std::string_view kTestClientPrefix = "com.keldra.Corvane.";
constexpr const char* kFeedFramework = "/System/Library/Frameworks/Nuvolo.framework";

void require(const std::error_code& error, const std::string& path) {
  if (error) throw std::system_error(error, path);
}

Array stringArray(const std::vector<std::string>& texts) {
  return Array(std::vector<Value>(texts.begin(), texts.end()));
}

// One run: the services as the scenario has them, and the outcome.
class ScenarioRun {
 public:
  explicit ScenarioRun(const Scenario& scenario) : _scenario(scenario), _session(scenario, _loomer) {
    _platform.makeDirectories(_platform.process.home + "/Library");
    _platform.uuids.given.assign(scenario.uuids.begin(), scenario.uuids.end());
    _platform.preferences.domains[kDomain] = scenario.preferences;
    _loomer.client.values = scenario.clientValues;
    _loomer.lastError = scenario.sessionError;
    addFeedAgent();
    if (scenario.bookmarks) {
      _platform.makeDirectories(std::filesystem::path(bookmarksPath()).parent_path());
      writeBookmarks(*scenario.bookmarks, scenario.bookmarksDate);
    }
    _platform.files.intercept = [this](const ForwardingFileSystem::Call& call) {
      return beforeFileOperation(call);
    };
  }

  Dictionary run() {
    bool created = false;
    try {
      const auto manager = CorvaneSyncManager::initWithClientId(_scenario.clientId);
      created = manager != nullptr;
      if (manager) _result.set("Synced", manager->sync());
    } catch (const PlatformException& exception) {
      _result.set("Exception", Dictionary{{"Name", exception.name()}, {"Reason", exception.reason()}});
    }
    _platform.files.intercept = nullptr;
    _result.set("Created", created);
    if (created) describeBookmarks();
    describeRest();
    return _result;
  }

 private:
  std::string directory() const { return _platform.process.home + "/Library/Corvane"; }

  // An id that does not name a file has no bookmarks either, so any path will do for it.
  std::string bookmarksPath() const {
    const std::string_view id = _scenario.clientId.view();
    const bool namesFile = id.starts_with(kTestClientPrefix) && id.size() > kTestClientPrefix.size();
    return directory() + "/" +
           (namesFile ? std::string(id.substr(kTestClientPrefix.size())) : "Bookmarks.plist");
  }

  void addFeedAgent() {
    FakeBundle& bundle = _platform.bundles.byPath[kFeedFramework];
    bundle.location = kFeedFramework;
    bundle.classes = {"NuvoloClient"};
    bundle.methods[{"NuvoloClient", "startSync"}] = &FakeBundles::countingMethod;
  }

  void writeBookmarks(const Dictionary& bookmarks, const std::optional<Date>& date) {
    const std::string path = bookmarksPath();
    require(_platform.realFiles.write(path, writeBinaryPropertyList(bookmarks)), path);
    if (date) require(setModificationDate(path, *date), path);
  }

  std::error_code beforeFileOperation(const ForwardingFileSystem::Call& call) {
    if (call.operation != FileOperation::makeDirectory || call.path != directory() + "/lock") return {};
    if (_saveAttempts < _scenario.browserWrites.size())
      applyBrowserWrite(_scenario.browserWrites[_saveAttempts]);
    ++_saveAttempts;
    return {};
  }

  void applyBrowserWrite(const BrowserWrite& write) {
    if (write.bookmarks) {
      writeBookmarks(*write.bookmarks, write.date);
    } else if (std::filesystem::exists(bookmarksPath())) {
      require(_platform.realFiles.remove(bookmarksPath()), bookmarksPath());
    }
  }

  void describeBookmarks() {
    std::string contents;
    if (_platform.realFiles.read(bookmarksPath(), contents)) return;
    _result.set("Bookmarks", readPropertyList(contents));
  }

  void describeRest() {
    _result.set("Results", _session.results());
    if (_session.workingMap()) _result.set("WorkingMap", *_session.workingMap());
    _result.set("SaveAttempts", static_cast<std::int64_t>(_saveAttempts));
    _result.set("Backups", backups());
    _result.set("ClientValues", _loomer.client.values);
    std::vector<std::string> names;
    for (const auto& posted : _platform.notifications.posted) names.push_back(posted.name);
    _result.set("Notifications", stringArray(names));
    _result.set("FeedAgentWoken", FakeBundles::methodCalls > 0);
    _result.set("SystemLog", stringArray(_platform.log.messages));
    _result.set("DiagnosticLog", stringArray(_platform.log.diagnostics));
  }

  Array backups() {
    const std::string path = directory() + "/backup";
    std::vector<std::string> names;
    if (std::filesystem::is_directory(path)) require(listDirectory(path, names), path);
    return stringArray(names);
  }

  const Scenario& _scenario;
  FakePlatform _platform;
  ScriptedLoomer _loomer;
  ScriptedSession _session;
  std::size_t _saveAttempts = 0;
  Dictionary _result;
};

}  // namespace

Dictionary runScenario(const Scenario& scenario) { return ScenarioRun(scenario).run(); }

}  // namespace corvane::scenario
