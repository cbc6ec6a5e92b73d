#pragma once

#include <string>

#include "CorvaneSyncClient/platform/system/SystemLog.h"

namespace corvane {

/// The log of syslog(3): identifier "corvanetool", with the process id, facility "user"; messages with
/// priority "notice", diagnostics with "info". Never writes to standard error; where no log daemon runs,
/// lines are lost. One object in the process at most.
class SyslogLog : public SystemLog {
 public:
  SyslogLog();
  ~SyslogLog() override;
  SyslogLog(const SyslogLog&) = delete;
  SyslogLog& operator=(const SyslogLog&) = delete;

  void write(Kind kind, std::string_view message) override;
};

/// Bytes that a line holds at most; log daemons cut longer ones without a mark.
inline constexpr std::size_t kLogLineLimit = 7'900;

/// The one line for a message. Control characters (ASCII's, the C1 range, and Unicode's line and paragraph
/// separators) become "\n", "\t", "\r", "\x1b" or "\u2028". A line beyond `kLogLineLimit` is cut between
/// characters and ends in "… (N bytes in all)", N being the size of the message.
std::string logLine(std::string_view message);

}  // namespace corvane
