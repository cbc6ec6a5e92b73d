#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "tools/loomerctl/Terminal.h"

namespace corvane::loomerctl {

/// Nobody reads the output any more (the pipe was closed): the command ends quietly.
class OutputClosed : public PlatformException {
 public:
  OutputClosed() : PlatformException("LoomerctlOutputClosed", "nobody reads the output") {}
};

/// What a piece of text is; decides its colour.
enum class Style { plain, heading, folder, faint, added, removed };

/// A file descriptor, buffered. Raises OutputClosed, and a PlatformException where writing fails otherwise.
class Output {
 public:
  /// `colours`: styles become terminal escape sequences; without, they are left out. `terminal`: what the
  /// descriptor's shows at once; nothing where it is none.
  Output(int descriptor, bool colours, std::optional<TerminalSize> terminal = std::nullopt)
      : _descriptor(descriptor), _colours(colours), _terminal(terminal) {}
  /// Keeps what is written, in the form for `other` were it a terminal of that size, until somebody takes it.
  static Output toMemory(const Output& other, TerminalSize size) {
    return Output(kNoDescriptor, other._colours, size);
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Adds to what will be written.
  void write(std::string_view text);
  void write(std::string_view text, Style style);
  /// Makes everything written so far visible. Whoever made the object calls it at the end.
  void flush();
  /// What was written to memory since this was asked last.
  std::string taken() { return std::exchange(_buffer, std::string()); }

  /// Sends what is written from now on to another descriptor, which is not owned. Answers the present one.
  int redirect(int descriptor) { return std::exchange(_descriptor, descriptor); }
  int descriptor() const { return _descriptor; }
  /// What the terminal shows at once; nothing where it is none.
  const std::optional<TerminalSize>& terminal() const { return _terminal; }
  /// How wide texts are to be.
  std::size_t columns() const { return _terminal.value_or(TerminalSize()).columns; }

 private:
  static constexpr int kNoDescriptor = -1;
  int _descriptor;
  bool _colours;
  std::optional<TerminalSize> _terminal;
  std::string _buffer;
};

/// One line, the text in a column behind the label, which takes at most 13 columns.
void writeField(Output& out, const std::string& label, const std::string& text);

/// One line of the program's own, which is made printable: "loomerctl: TEXT".
void writeMessage(Output& err, const std::string& text);

}  // namespace corvane::loomerctl
