#pragma once

#include "CorvaneSyncClient/platform/system/Bundle.h"
#include "CorvaneSyncClient/platform/system/Clock.h"
#include "CorvaneSyncClient/platform/system/FileSystem.h"
#include "CorvaneSyncClient/platform/system/NotificationCenter.h"
#include "CorvaneSyncClient/platform/system/Preferences.h"
#include "CorvaneSyncClient/platform/system/ProcessInfo.h"
#include "CorvaneSyncClient/platform/system/ServiceScope.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"
#include "CorvaneSyncClient/platform/system/UuidSource.h"

namespace corvane {

/// The services of the system, gathered. Owns none of them. One instance is current in the process; `main`
/// makes the real one current, tests make others current for a scope.
struct Platform {
  Clock& clock;
  UuidSource& uuids;
  ProcessInfo& process;
  FileSystem& files;
  Preferences& preferences;
  SystemLog& log;
  NotificationCenter& notifications;
  BundleLoader& bundles;

  /// The current instance. Calling it with none current is a programming error and ends the process.
  static Platform& current();
};

/// Makes a platform current.
using PlatformScope = ServiceScope<Platform>;

/// The real services of Linux, made at the first call; owned by the process.
Platform& linuxPlatform();

}  // namespace corvane
