#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/model/BookmarkMap.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/session/CorvaneSyncManager.h"
#include "CorvaneSyncClient/session/SessionDriverController.h"
#include "tests/fakes/StrictPlatform.h"
#include "tests/kit/Entries.h"
#include "tests/session/ScriptedLoomer.h"

namespace corvane {

constexpr int kAdd = LoomerChangeTypeAdd;
constexpr int kModify = LoomerChangeTypeModify;
constexpr int kDelete = LoomerChangeTypeDelete;

std::unique_ptr<BookmarkMap> mapped(const Dictionary& bookmarks);
/// The tree from the root in the notation of tests, entries called by their uids: "Root(news(n1 n2) w1)".
/// Uids that the map does not hold are marked with "?".
std::string tree(const BookmarkMap& map);

/// Fakes of all services with diagnostics on, and a scripted engine. A message in the system log that a test
/// does not declare fails it.
class SyncSessionTest : public ::testing::Test {
 protected:
  SyncSessionTest();

  std::string directory() const { return platform.process.home + "/Library/Corvane"; }
  std::string bookmarksPath() const { return directory() + "/Bookmarks.plist"; }
  /// Writes the file, with a modification date that no other call gives.
  void writeBookmarks(const Dictionary& bookmarks, const std::string& name = "Bookmarks.plist");
  std::optional<Dictionary> savedBookmarks(const std::string& name = "Bookmarks.plist");
  Date fileDate();
  /// Before each of the next `count` saves takes the directory's lock, the browser writes `bookmarks`.
  void browserWritesBeforeSaves(int count, const Dictionary& bookmarks);

  /// How many diagnostic lines are exactly `text`.
  int diagnosed(const std::string& text) const;
  /// The diagnostic lines that contain `text`.
  std::vector<std::string> diagnosticsWith(const std::string& text) const;

  StrictPlatform platform;
  ScriptedLoomer loomer;

 private:
  double _nextDate = 1000.0;
};

/// A data source on its own, with a manager that is there to save.
class ControllerTest : public SyncSessionTest {
 protected:
  /// The session begins with these bookmarks, on disk too.
  void begin(const Dictionary& bookmarks);
  int apply(int type, const String& identifier, std::optional<Dictionary> record, const String& entity);
  int applyFolder(int type, const String& identifier, std::optional<Dictionary> record = std::nullopt) {
    return apply(type, identifier, std::move(record), LoomerEntity_Bookmarks_Folder);
  }
  int applyBookmark(int type, const String& identifier, std::optional<Dictionary> record = std::nullopt) {
    return apply(type, identifier, std::move(record), LoomerEntity_Bookmarks_Bookmark);
  }
  bool deleteAll(const String& entity);
  void didPull();
  /// Replays what was pulled on a map of `bookmarks`.
  std::unique_ptr<BookmarkMap> replayed(const Dictionary& bookmarks);

  const BookmarkMap& working() const { return *controller->currentBookmarkDictionary(); }

  std::unique_ptr<CorvaneSyncManager> manager;
  std::unique_ptr<SessionDriverController> controller;
  std::unique_ptr<LoomerSessionDriver> driver;
  String remapped;  ///< what the last change handed back
  String error;
};

}  // namespace corvane
