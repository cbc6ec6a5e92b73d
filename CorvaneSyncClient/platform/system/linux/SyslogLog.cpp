#include "CorvaneSyncClient/platform/system/linux/SyslogLog.h"

#include <syslog.h>

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane {

namespace {

constexpr std::size_t kRoomForMark = 64;

// `code` in two hexadecimal digits.
std::string hexadecimal(unsigned code) {
  constexpr char digits[] = "0123456789abcdef";
  return {digits[code / 16 % 16], digits[code % 16]};
}

// One character as it stands in a line.
std::string lineForm(std::string_view character) {
  const auto first = static_cast<unsigned char>(character[0]);
  if (character == "\n") return "\\n";
  if (character == "\r") return "\\r";
  if (character == "\t") return "\\t";
  if (first < 0x20 || first == 0x7F) return "\\x" + hexadecimal(first);
  if (character.size() == 2 && first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0) {
    return "\\u00" + hexadecimal(static_cast<unsigned char>(character[1]));
  }
  if (character == "\u2028") return "\\u2028";
  if (character == "\u2029") return "\\u2029";
  return std::string(character);
}

}  // namespace

std::string logLine(std::string_view message) {
  std::string line;
  std::size_t cut = 0;  // where the line ends if it turns out too long
  for (std::size_t i = 0; i < message.size();) {
    // Bytes that are no UTF-8 come one by one, so that none takes what follows it along.
    const std::string_view character =
        message.substr(i, std::max<std::size_t>(decodeUtf8(message, i).length, 1));
    line += lineForm(character);
    if (line.size() <= kLogLineLimit - kRoomForMark) cut = line.size();
    if (line.size() > kLogLineLimit) {
      line.resize(cut);
      return line + "… (" + std::to_string(message.size()) + " bytes in all)";
    }
    i += character.size();
  }
  return line;
}

SyslogLog::SyslogLog() { openlog("corvanetool", LOG_PID, LOG_USER); }

SyslogLog::~SyslogLog() { closelog(); }

void SyslogLog::write(Kind kind, std::string_view message) {
  syslog(kind == Kind::message ? LOG_NOTICE : LOG_INFO, "%s", logLine(message).c_str());
}

}  // namespace corvane
