#include "CorvaneSyncClient/platform/system/LogListener.h"

#include <string>

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
  if (kind == Kind::message) _lastMessage = std::string(message);
  if (_passing == Passing::on) _log.write(kind, message);
}

void LogListener::writeMessage(const Message& message) {
  _lastMessage = message;
  if (_passing == Passing::on) _log.writeMessage(message);
}

}  // namespace corvane
