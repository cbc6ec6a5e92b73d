#pragma once

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/LinuxFileSystem.h"
#include "tests/fakes/FakeBundles.h"
#include "tests/fakes/FakeProcessInfo.h"
#include "tests/fakes/ForwardingFileSystem.h"
#include "tests/fakes/ManualClock.h"
#include "tests/fakes/MemoryPreferences.h"
#include "tests/fakes/RecordingLog.h"
#include "tests/fakes/RecordingNotifications.h"
#include "tests/fakes/SequencedUuids.h"
#include "tests/fakes/TemporaryDirectory.h"

namespace corvane {

/// One fake of every service, current for as long as this object lives. Files are real ones, in a fresh
/// directory with the sub-directories "home" and "tmp", which `process` names.
class FakePlatform {
 public:
  FakePlatform();

  /// Makes a directory and those above it; for arranging a test, hence uncounted by `files`.
  void makeDirectories(const std::string& path);

  TemporaryDirectory directory;
  ManualClock clock;
  SequencedUuids uuids;
  FakeProcessInfo process;
  LinuxFileSystem realFiles;
  ForwardingFileSystem files{realFiles};
  MemoryPreferences preferences;
  RecordingLog log;
  RecordingNotifications notifications;
  FakeBundles bundles;

 private:
  Platform _platform{clock, uuids, process, files, preferences, log, notifications, bundles};
  PlatformScope _scope{_platform};
};

}  // namespace corvane
