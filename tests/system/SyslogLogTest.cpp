// The C library's log functions are put aside by this program's own, so that no test reaches the machine's
// log.

#include <gtest/gtest.h>
#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/system/linux/SyslogLog.h"

namespace {

struct Opened {
  std::string identifier;
  int options = 0;
  int facility = 0;
};
Opened opened;
std::vector<std::pair<int, std::string>> logged;

}  // namespace

extern "C" {

void openlog(const char* identifier, int options, int facility) { opened = {identifier, options, facility}; }

__attribute__((format(printf, 2, 3))) void syslog(int priority, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  char line[65536];
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  logged.emplace_back(priority, line);
}

void closelog() { opened = {}; }

}  // extern "C"

namespace corvane {
namespace {

TEST(SyslogLog, LinesBearIdentifierPidAndFacilityAndSpareStandardError) {
  SyslogLog log;
  EXPECT_EQ(opened.identifier, "corvanetool");
  EXPECT_EQ(opened.options, LOG_PID);  // LOG_PERROR and LOG_CONS would write elsewhere
  EXPECT_EQ(opened.facility, LOG_USER);
}

TEST(SyslogLog, OneMessageIsOneLine) {
  logged.clear();
  SyslogLog log;
  log.write(SystemLog::Kind::message, "100% of %s\nsecond line");
  log.write(SystemLog::Kind::diagnostic, "trace");
  const std::vector<std::pair<int, std::string>> expected = {{LOG_NOTICE, "100% of %s\\nsecond line"},
                                                             {LOG_INFO, "trace"}};
  EXPECT_EQ(logged, expected);
}

TEST(SyslogLog, ControlCharactersAreEscaped) {
  struct Row {
    std::string message;
    const char* expected;
  };
  const Row rows[] = {
      {"plain text, ünïcödé 書 🌍", "plain text, ünïcödé 書 🌍"},
      {"a\nb\r\nc\td", "a\\nb\\r\\nc\\td"},
      {"\x1b[31mred", "\\x1b[31mred"},
      {std::string("nul\0!", 5), "nul\\x00!"},
      {"\x7f", "\\x7f"},
      {"\u0085|\u009b|\u00a0|", "\\u0085|\\u009b|\u00a0|"},
      {"\u2028\u2029", "\\u2028\\u2029"},
      {"back\\slash and 50%", "back\\slash and 50%"},
      {"\xff\xc3\xe2\x80", "\xff\xc3\xe2\x80"},
      {"\xE2\nFAKE LINE", "\xE2\\nFAKE LINE"},
      {"\xF0\x9F\x8C\n", "\xF0\x9F\x8C\\n"},
      {"\xC3\x1b[2J", "\xC3\\x1b[2J"},
      {"", ""},
  };
  for (const Row& row : rows) EXPECT_EQ(logLine(row.message), row.expected);
}

TEST(SyslogLog, VeryLongMessagesAreCutWithAMark) {
  const std::string fitting(kLogLineLimit, 'x');
  EXPECT_EQ(logLine(fitting), fitting);
  const std::string line = logLine(fitting + "y");
  EXPECT_LE(line.size(), kLogLineLimit);
  EXPECT_TRUE(line.ends_with("xxx… (7901 bytes in all)")) << line.substr(line.size() - 40);
  EXPECT_GE(line.size(), kLogLineLimit - 64);
}

TEST(SyslogLog, ACutNeverFallsInsideACharacterOrAnEscape) {
  for (std::size_t shift = 0; shift < 5; ++shift) {
    const std::string start(shift, 'x');
    std::string globes, escapes;
    for (int i = 0; i < 5000; ++i) globes += "🌍", escapes += '\x01';
    const std::string cutGlobes = logLine(start + globes);
    EXPECT_EQ((cutGlobes.find("… (") - shift) % 4, 0u) << shift;
    const std::string cutEscapes = logLine(start + escapes);
    EXPECT_EQ((cutEscapes.find("… (") - shift) % 4, 0u) << shift;
    EXPECT_LE(cutEscapes.size(), kLogLineLimit);
  }
}

}  // namespace
}  // namespace corvane
