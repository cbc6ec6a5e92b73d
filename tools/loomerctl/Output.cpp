#include "tools/loomerctl/Output.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

namespace {

constexpr std::size_t kBufferBytes = 1 << 16;

// Parameters of the terminals' "select graphic rendition" (ECMA-48).
const char* rendition(Style style) {
  switch (style) {
    case Style::heading:
      return "\x1b[1m";
    case Style::folder:
      return "\x1b[34m";
    case Style::faint:
      return "\x1b[2m";
    case Style::added:
      return "\x1b[32m";
    case Style::removed:
      return "\x1b[31m";
    case Style::plain:
      break;
  }
  return "";
}

}  // namespace

void Output::write(std::string_view text) {
  _buffer += text;
  if (_buffer.size() >= kBufferBytes) flush();
}

void Output::write(std::string_view text, Style style) {
  if (!_colours || style == Style::plain) return write(text);
  write(rendition(style));
  write(text);
  write("\x1b[0m");
}

void Output::flush() {
  if (_descriptor == kNoDescriptor) return;
  std::string_view rest = _buffer;
  while (!rest.empty()) {
    const ssize_t written = ::write(_descriptor, rest.data(), rest.size());
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      const int error = errno;
      _buffer.clear();
      if (error == EPIPE) throw OutputClosed{};
      throw PlatformException("LoomerctlOutputFailed",
                              tr("cannot write the output: %1", std::system_category().message(error)));
    }
  }
  _buffer.clear();
}

void writeField(Output& out, const std::string& label, const std::string& text) {
  constexpr std::size_t kColumn = 14;
  const std::size_t width = displayWidth(label);
  out.write(label + std::string(width < kColumn ? kColumn - width : 1, ' '), Style::heading);
  out.write(text + '\n');
}

void writeMessage(Output& err, const std::string& text) { err.write("loomerctl: " + printable(text) + '\n'); }

}  // namespace corvane::loomerctl
