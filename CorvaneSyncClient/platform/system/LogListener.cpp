#include "CorvaneSyncClient/platform/system/LogListener.h"

namespace corvane {

namespace {

Platform platformWithLog(const Platform& platform, SystemLog& log) {
  return {platform.clock,         platform.uuids,       platform.process,
          platform.files,         platform.preferences, log,
          platform.notifications, platform.bundles};
}

}  // namespace

LogListener::LogListener(Passing passing)
    : _passing(passing),
      _log(Platform::current().log),
      _platform(platformWithLog(Platform::current(), *this)) {}

void LogListener::write(Kind kind, std::string_view message) {
  if (kind == Kind::message) _lastMessage = message;
  if (_passing == Passing::on) _log.write(kind, message);
}

}  // namespace corvane
