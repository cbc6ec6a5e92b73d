#pragma once

#include <string_view>

#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane {

/// Hears what is written to the system log for as long as it lives, and remembers the last message: how a
/// failure that only the log tells of comes to whoever asked for the work.
class LogListener : private SystemLog {
 public:
  /// Whether what is heard goes on to the log that was there before.
  enum class Passing { on, off };

  explicit LogListener(Passing passing);
  LogListener(const LogListener&) = delete;
  LogListener& operator=(const LogListener&) = delete;

  /// Empty before there was one. Traces are none.
  const Message& lastMessage() const { return _lastMessage; }

 private:
  void write(Kind kind, std::string_view message) override;
  void writeMessage(const Message& message) override;

  Passing _passing;
  SystemLog& _log;
  Platform _platform;
  PlatformScope _scope{_platform};
  Message _lastMessage;
};

}  // namespace corvane
