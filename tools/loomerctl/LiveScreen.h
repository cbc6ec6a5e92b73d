#pragma once

#include <string>

#include "tools/loomerctl/Output.h"

namespace corvane::loomerctl {

/// A terminal's other screen, without a cursor, for as long as this object lives; the user's own comes back
/// afterwards as it was. Escape sequences as xterm has them (ECMA-48 and DEC's private modes).
class LiveScreen {
 public:
  /// `out` is a terminal and outlives this object.
  explicit LiveScreen(Output& out);
  ~LiveScreen();
  LiveScreen(const LiveScreen&) = delete;
  LiveScreen& operator=(const LiveScreen&) = delete;

  /// Shows the lines of `text` from the top; what does not fit is counted in the last line.
  void show(const std::string& text, std::size_t rows);

 private:
  Output& _out;
};

}  // namespace corvane::loomerctl
