#include "tools/loomerctl/Input.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>

#include "CorvaneSyncClient/platform/pelto/seal/SecretBytes.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

namespace {

std::string nameOfStandardInput() { return tr("standard input"); }

[[noreturn]] void refuse(const std::string& name, std::error_code error) {
  throw Refused{tr("Cannot read %1: %2.", name, error.message())};
}

// Reads what there is, at most `size` bytes; 0 at the end.
std::size_t readSome(int descriptor, const std::string& name, char* bytes, std::size_t size) {
  const ssize_t count = retryingInterrupted([&] { return ::read(descriptor, bytes, size); });
  if (count < 0) refuse(name, lastSystemError());
  return static_cast<std::size_t>(count);
}

std::string readAll(int descriptor, const std::string& name) {
  std::string bytes;
  char buffer[1 << 16];
  while (const std::size_t count = readSome(descriptor, name, buffer, sizeof buffer)) {
    bytes.append(buffer, count);
  }
  return bytes;
}

// Standard input, a terminal, passing on each key as it is typed and showing none, for as long as this
// object lives. Keys that would end the program come as characters, so that none of them leaves the terminal
// like that.
class SilentTerminal {
 public:
  SilentTerminal() {
    if (tcgetattr(STDIN_FILENO, &_before) != 0) refuse(nameOfStandardInput(), lastSystemError());
    termios silent = _before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
    silent.c_cc[VMIN] = 1;
    silent.c_cc[VTIME] = 0;
    if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) != 0) refuse(nameOfStandardInput(), lastSystemError());
  }
  // A terminal that cannot be set back has been closed.
  ~SilentTerminal() { tcsetattr(STDIN_FILENO, TCSAFLUSH, &_before); }
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;

 private:
  termios _before{};
};

// ASCII.
constexpr char kEndOfText = 3;             // control-C
constexpr char kEndOfTransmission = 4;     // control-D
constexpr char kNegativeAcknowledge = 21;  // control-U
constexpr char kDelete = 127;

// A line as it is typed on a silent terminal; nothing if the user cancels.
std::optional<std::string> typedLine() {
  std::string line;
  char key = 0;
  while (readSome(STDIN_FILENO, nameOfStandardInput(), &key, 1) == 1 && key != '\n' && key != '\r' &&
         key != kEndOfTransmission) {
    if (key == kEndOfText) return std::nullopt;
    if (key == kNegativeAcknowledge) {
      line.clear();
    } else if (key != kDelete && key != '\b') {
      line += key;
    } else if (!line.empty()) {
      line.pop_back();
    }
  }
  return line;
}

using IsComplete = std::function<bool(const std::string&)>;

// What is typed until `isComplete`, or an empty line after others.
std::string typedLines(const std::string& prompt, const IsComplete& isComplete) {
  std::string text;
  bool isCancelled = false;
  {
    const SilentTerminal terminal;
    std::fputs((prompt + ' ').c_str(), stderr);  // now, since what is typed before is dropped
    do {
      const auto line = typedLine();
      isCancelled = !line;
      if (isCancelled || line->empty()) break;
      text += *line + '\n';
    } while (!isComplete(text));
  }
  std::fputs("\n", stderr);
  if (isCancelled) throw Refused{tr("Cancelled; nothing was changed.")};
  return text;
}

std::string trimmed(const std::string& line) {
  static constexpr const char* kWhiteSpace = " \t\r\n";
  const std::size_t first = line.find_first_not_of(kWhiteSpace);
  if (first == std::string::npos) return "";
  return line.substr(first, line.find_last_not_of(kWhiteSpace) + 1 - first);
}

}  // namespace

std::string inputName(const std::string& path) {
  return path == kStandardStream ? nameOfStandardInput() : path;
}

std::string readInput(const std::string& path) {
  if (path == kStandardStream) return readAll(STDIN_FILENO, nameOfStandardInput());
  const FileDescriptor file(retryingInterrupted([&] { return open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
  if (!file) refuse(path, lastSystemError());
  return readAll(file.number(), path);
}

SecretInput::~SecretInput() { pelto::wipe(_rest); }

std::string SecretInput::line(const std::string& prompt) {
  return lines(prompt, [](const std::string&) { return true; });
}

std::string SecretInput::lines(const std::string& prompt, const IsComplete& isComplete) {
  std::string text = isatty(STDIN_FILENO) == 1 ? typedLines(prompt, isComplete) : givenLines(isComplete);
  const pelto::WipeAtEnd wiping(text);
  std::string bare = trimmed(text);
  if (bare.empty()) throw Refused{tr("Standard input held nothing.")};
  return bare;
}

std::string SecretInput::givenLines(const IsComplete& isComplete) {
  if (!_isRead) _rest = readInput(kStandardStream);
  _isRead = true;
  std::string text;
  do {
    const std::size_t end = std::min(_rest.find('\n'), _rest.size());
    text += _rest.substr(0, end) + '\n';
    _rest.erase(0, end + 1);
  } while (!_rest.empty() && !isComplete(text));
  return text;
}

}  // namespace corvane::loomerctl
