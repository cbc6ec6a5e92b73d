#include "tools/loomerctl/LiveScreen.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomerctl {

namespace {

// Other screen; no cursor; lines that are too long are cut by the terminal.
constexpr const char* kEnter = "\x1b[?1049h\x1b[?25l\x1b[?7l";
constexpr const char* kLeave = "\x1b[?7h\x1b[?25h\x1b[?1049l";
constexpr const char* kTop = "\x1b[H";
constexpr const char* kClearLine = "\x1b[K";
constexpr const char* kClearBelow = "\x1b[J";

}  // namespace

LiveScreen::LiveScreen(Output& out) : _out(out) {
  _out.write(kEnter);
  _out.flush();
}

LiveScreen::~LiveScreen() {
  try {
    _out.write(kLeave);
    _out.flush();
  } catch (const PlatformException&) {
    // The terminal is gone, and needs nothing back.
  }
}

// Line by line over what stood there, so that nothing flickers.
void LiveScreen::show(const std::string& text, std::size_t rows) {
  const auto count = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
  const std::size_t shown = count <= rows ? count : rows - 1;
  _out.write(kTop);
  std::size_t at = 0;
  for (std::size_t i = 0; i < shown; ++i) {
    const std::size_t end = text.find('\n', at);
    if (i > 0) _out.write("\r\n");
    _out.write(std::string_view(text).substr(at, end - at));
    _out.write(kClearLine);
    at = end + 1;
  }
  if (shown < count)
    _out.write("\r\n" + counted(count - shown, "(%1 more line)", "(%1 more lines)") + kClearLine);
  _out.write(kClearBelow);
  _out.flush();
}

}  // namespace corvane::loomerctl
