#pragma once

#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"

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
  /// `colours`: styles become terminal escape sequences; without, they are left out.
  Output(int descriptor, bool colours) : _descriptor(descriptor), _colours(colours) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Adds to what will be written.
  void write(std::string_view text);
  void write(std::string_view text, Style style);
  /// Makes everything written so far visible. Whoever made the object calls it at the end.
  void flush();

 private:
  int _descriptor;
  bool _colours;
  std::string _buffer;
};

/// One line, the text in a column behind the label, which takes at most 13 columns.
void writeField(Output& out, const std::string& label, const std::string& text);

/// One line of the program's own, which is made printable: "loomerctl: TEXT".
void writeMessage(Output& err, const std::string& text);

}  // namespace corvane::loomerctl
