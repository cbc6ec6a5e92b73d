#include "CorvaneSyncClient/platform/system/DlopenBundle.h"
#include "CorvaneSyncClient/platform/system/LinuxClock.h"
#include "CorvaneSyncClient/platform/system/LinuxFileSystem.h"
#include "CorvaneSyncClient/platform/system/LinuxProcessInfo.h"
#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/PropertyListPreferences.h"
#include "CorvaneSyncClient/platform/system/RandomUuids.h"
#include "CorvaneSyncClient/platform/system/SdBusNotificationCenter.h"
#include "CorvaneSyncClient/platform/system/SyslogLog.h"

namespace corvane {

namespace {

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
