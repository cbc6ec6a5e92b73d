#pragma once

#include "CorvaneSyncClient/store/CorvanePlistManager.h"
#include "tests/store/StoreTest.h"

namespace corvane {

/// A manager of "Bookmarks.plist" in the guarded directory. By default a test leaves that file and nothing
/// else.
class PlistManagerTest : public StoreTest {
 protected:
  PlistManagerTest() { leftOnDisk = {"Bookmarks.plist"}; }

  /// Contents that differ by `version`.
  static Dictionary bookmarksOf(int version) { return {{"Version", version}, {"Title", "Tidal pools"}}; }
  /// Puts the file, as the browser would, with a date of its own.
  void putFile(const Dictionary& contents, double seconds) const;
  /// The file's contents past the code under test; absent when there is none.
  std::optional<Dictionary> fileOnDisk() const { return dictionaryAt(file); }
  static std::optional<Dictionary> dictionaryAt(const std::string& path);
  void turnBackupsOn() {
    platform.preferences.domains["com.keldra.Corvane.SyncClient"].set("SaveCorvaneBookmarksBackupFiles",
                                                                      true);
  }
  /// How many notifications were posted, each of which must be the right one.
  std::size_t notifications() const;

  const std::string file = guarded + "/Bookmarks.plist";
  CorvanePlistManager manager{guarded, "Bookmarks.plist"};
};

}  // namespace corvane
