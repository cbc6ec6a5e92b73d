#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::browsers {

/// Most bytes of a message's JSON, in both directions. Browsers take more, but grow slow above a few MiB.
inline constexpr std::size_t kLargestMessage = 256 * 1024;

/// The connection with the extension. One thread.
class MessageChannel {
 public:
  virtual ~MessageChannel() = default;
  /// Sends a message of at most `kLargestMessage` bytes. Where the extension is gone, the next `receive` says
  /// so.
  virtual void send(std::string_view message) = 0;
  /// Waits for the next message; nothing once the extension is gone. Raises MessageProblem for bytes that are
  /// none.
  virtual std::optional<std::string> receive() = 0;
};

}  // namespace corvane::browsers
