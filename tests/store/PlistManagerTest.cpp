#include "tests/store/PlistManagerTest.h"

#include <filesystem>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"

namespace corvane {

void PlistManagerTest::putFile(const Dictionary& contents, double seconds) const {
  writeFile(file, writeXmlPropertyList(contents));
  setDate(file, seconds);
}

std::optional<Dictionary> PlistManagerTest::dictionaryAt(const std::string& path) {
  if (!std::filesystem::exists(path)) return std::nullopt;
  return *readPropertyList(contentsOf(path)).as<Dictionary>();
}

std::size_t PlistManagerTest::notifications() const {
  for (const auto& posted : platform.notifications.posted) {
    EXPECT_EQ(posted, (RecordingNotifications::Posted{"CorvaneBookmarkFileNotificationName", "tester"}));
  }
  return platform.notifications.posted.size();
}

}  // namespace corvane
