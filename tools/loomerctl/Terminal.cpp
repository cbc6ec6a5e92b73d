#include "tools/loomerctl/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string_view>
#include <system_error>

namespace corvane::loomerctl {

namespace {

// Less than these shows nothing of use.
constexpr std::size_t kFewestColumns = 10;
constexpr std::size_t kFewestRows = 2;

std::string_view variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

// As the user set it by hand; otherwise what the terminal says, and its usual size where it says nothing.
std::size_t sizeOr(const char* name, std::size_t said, std::size_t usual, std::size_t fewest) {
  const std::string_view text = variable(name);
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool isNumber = error == std::errc() && end == text.data() + text.size();
  if (isNumber && number >= fewest) return number;
  return said > 0 ? std::max(said, fewest) : usual;
}

}  // namespace

std::optional<TerminalSize> terminalSize(int descriptor) {
  if (isatty(descriptor) != 1) return std::nullopt;
  winsize said = {};
  // One that does not know its size leaves the zeros.
  static_cast<void>(ioctl(descriptor, TIOCGWINSZ, &said));
  const TerminalSize usual;
  return TerminalSize{sizeOr("COLUMNS", said.ws_col, usual.columns, kFewestColumns),
                      sizeOr("LINES", said.ws_row, usual.rows, kFewestRows)};
}

bool showsColours(int descriptor) {
  const std::string_view terminal = variable("TERM");
  const bool isAble = !terminal.empty() && terminal != "dumb";
  return variable("NO_COLOR").empty() && isAble && isatty(descriptor) == 1;
}

}  // namespace corvane::loomerctl
