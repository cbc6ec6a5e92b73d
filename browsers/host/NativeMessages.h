#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "browsers/host/MessageChannel.h"

namespace corvane::browsers {

/// The bytes of native messaging: each message a 32-bit length in the processor's order, and its JSON.
std::string framed(std::string_view message);

/// Cuts a stream of such bytes into messages, however they come.
class MessageCutter {
 public:
  void add(std::string_view bytes) { _bytes += bytes; }
  /// The next whole message; nothing as long as bytes of it are missing. Raises MessageProblem for a length
  /// above `kLargestMessage`.
  std::optional<std::string> next();
  /// Whether part of a message is there.
  bool isInside() const { return !_bytes.empty(); }

 private:
  std::string _bytes;
};

/// Native messaging over two open files, which it does not own.
class NativeMessages : public MessageChannel {
 public:
  NativeMessages(int input, int output) : _input(input), _output(output) {}

  void send(std::string_view message) override;
  std::optional<std::string> receive() override;
  /// A message that has come already; nothing where `receive` would wait, or would say that there are none.
  std::optional<std::string> arrived();
  /// Whether the extension is gone.
  bool hasEnded() const { return _ended; }
  /// Whether `read` would not wait.
  bool isReadable() const;
  /// Reads what the system has, waiting for it if there is nothing yet.
  void read();

 private:
  int _input;
  int _output;
  bool _ended = false;
  MessageCutter _cutter;
};

}  // namespace corvane::browsers
