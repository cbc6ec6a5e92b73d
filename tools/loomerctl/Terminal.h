#pragma once

#include <cstddef>
#include <optional>

namespace corvane::loomerctl {

/// What a terminal shows at once.
struct TerminalSize {
  std::size_t columns = 80;
  std::size_t rows = 24;
};

/// The size of the terminal at the descriptor, where COLUMNS and LINES do not say otherwise; nothing where it
/// is none.
std::optional<TerminalSize> terminalSize(int descriptor);

/// Whether colours are wanted and shown there: not on what is no terminal, or a dumb one, and not where
/// NO_COLOR is set (https://no-color.org).
bool showsColours(int descriptor);

}  // namespace corvane::loomerctl
