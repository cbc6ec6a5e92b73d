// A library to be preloaded into programs under test: it takes the place of the C library's way to the system
// log, and appends each line to the file that the environment variable CORVANE_TEST_SYSLOG names.

#include <fcntl.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

[[gnu::format(printf, 1, 0)]] std::string formatted(const char* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length < 0) return format;
  std::string text(static_cast<std::size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();
  return text;
}

// A line that cannot be kept must not be lost silently, nor reach the real log.
[[gnu::format(printf, 1, 0)]] void append(const char* format, va_list arguments) {
  const std::string line = formatted(format, arguments) + "\n";
  const char* path = std::getenv("CORVANE_TEST_SYSLOG");
  const int file = path ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600) : -1;
  if (file < 0 || write(file, line.data(), line.size()) != static_cast<ssize_t>(line.size())) abort();
  close(file);
}

}  // namespace

extern "C" {

void openlog(const char*, int, int) {}
void closelog() {}

[[gnu::format(printf, 2, 0)]] void vsyslog(int, const char* format, va_list arguments) {
  append(format, arguments);
}

[[gnu::format(printf, 2, 3)]] void syslog(int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  append(format, arguments);
  va_end(arguments);
}

// What the two are called by in programs compiled with _FORTIFY_SOURCE.

[[gnu::format(printf, 3, 0)]] void __vsyslog_chk(int, int, const char* format, va_list arguments) {
  append(format, arguments);
}

[[gnu::format(printf, 3, 4)]] void __syslog_chk(int, int, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  append(format, arguments);
  va_end(arguments);
}
}
