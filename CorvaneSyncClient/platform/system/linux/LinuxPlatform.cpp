#include "CorvaneSyncClient/platform/foundation/Uuid.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/bundles/LinuxBundleLoader.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "CorvaneSyncClient/platform/system/linux/LinuxClock.h"
#include "CorvaneSyncClient/platform/system/linux/LinuxProcessInfo.h"
#include "CorvaneSyncClient/platform/system/linux/PropertyListPreferences.h"
#include "CorvaneSyncClient/platform/system/linux/SdBusNotificationCenter.h"
#include "CorvaneSyncClient/platform/system/linux/SyslogLog.h"

namespace corvane {

namespace {

// Random UUIDs from the system's generator.
class RandomUuids : public UuidSource {
 public:
  String newUuid() override { return newUuidString(); }
};

struct LinuxServices {
  LinuxClock clock;
  RandomUuids uuids;
  LinuxProcessInfo process;
  LinuxFileSystem files;
  PropertyListPreferences preferences{files, process};
  SyslogLog log;
  SdBusNotificationCenter notifications;
  LinuxBundleLoader bundles{files, runningExecutable(), preferredLanguages(localeOfEnvironment())};
  Platform platform{clock, uuids, process, files, preferences, log, notifications, bundles};
};

}  // namespace

Platform& linuxPlatform() {
  static LinuxServices services;
  return services.platform;
}

}  // namespace corvane
