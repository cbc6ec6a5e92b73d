#include "tools/loomerctl/Progress.h"

#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

namespace {
constexpr const char* kLineBegin = "\r";
constexpr const char* kEraseLine = "\x1b[K";
}  // namespace

Progress::~Progress() {
  if (!_isShown) return;
  try {
    _err.write(kLineBegin);
    _err.write(kEraseLine);
    _err.flush();
  } catch (const PlatformException&) {
    // A terminal that is gone needs no clearing.
  }
}

void Progress::say(const std::string& text) {
  if (!_err.terminal()) return;
  _isShown = true;
  // The last column stays free: a terminal would go on in the next line.
  _err.write(kLineBegin + cut(text, _err.columns() - 1) + kEraseLine);
  _err.flush();
}

}  // namespace corvane::loomerctl
