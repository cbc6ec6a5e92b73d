#pragma once

#include <string_view>

#include "CorvaneSyncClient/platform/foundation/Message.h"
#include "CorvaneSyncClient/platform/foundation/values/Format.h"

namespace corvane {

/// The always-on log. One message becomes one line: line breaks and other control characters inside are
/// escaped.
class SystemLog {
 public:
  enum class Kind { message, diagnostic };

  virtual ~SystemLog() = default;
  /// `kind` distinguishes traces from messages; both go to the same log.
  virtual void write(Kind kind, std::string_view message) = 0;
  /// Writes a message in English. Who listens for people keeps it as it is.
  virtual void writeMessage(const Message& message) { write(Kind::message, message.inEnglish()); }
};

/// Writes one message, already built, to the current platform's system log.
void writeToSystemLog(std::string_view message);

/// Writes why something fails, which may be shown to people later, to the current platform's system log.
void reportProblem(const Message& problem);

/// Writes a formatted message to the current platform's system log.
template <typename... Arguments>
void systemLog(std::string_view text, const Arguments&... arguments) {
  writeToSystemLog(format(text, arguments...));
}

}  // namespace corvane
