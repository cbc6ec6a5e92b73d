#include "browsers/host/NativeMessages.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"
#include "browsers/host/MessageProblem.h"

namespace corvane::browsers {

namespace {

constexpr std::size_t kReadSize = 64 * 1024;

}  // namespace

std::string framed(std::string_view message) {
  const auto size = static_cast<std::uint32_t>(message.size());
  std::string bytes(sizeof size, '\0');
  std::memcpy(bytes.data(), &size, sizeof size);
  bytes += message;
  return bytes;
}

std::optional<std::string> MessageCutter::next() {
  std::uint32_t size = 0;
  if (_bytes.size() < sizeof size) return std::nullopt;
  std::memcpy(&size, _bytes.data(), sizeof size);
  if (size > kLargestMessage) {
    throw MessageProblem("A message of " + std::to_string(size) +
                         " bytes is announced, which is longer than any may be.");
  }
  if (_bytes.size() < sizeof size + size) return std::nullopt;
  std::string message = _bytes.substr(sizeof size, size);
  _bytes.erase(0, sizeof size + size);
  return message;
}

void NativeMessages::send(std::string_view message) {
  const std::string bytes = framed(message);
  std::string_view rest = bytes;
  while (!rest.empty()) {
    const ssize_t written = retryingInterrupted([&] { return ::write(_output, rest.data(), rest.size()); });
    if (written < 0) {
      _ended = true;  // nobody reads any more; whoever waits for an answer learns it from `receive`
      return;
    }
    rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

std::optional<std::string> NativeMessages::receive() {
  while (true) {
    if (auto message = arrived()) return message;
    if (_ended) return std::nullopt;
    read();
  }
}

std::optional<std::string> NativeMessages::arrived() { return _cutter.next(); }

bool NativeMessages::isReadable() const {
  pollfd input{_input, POLLIN, 0};
  return retryingInterrupted([&] { return ::poll(&input, 1, 0); }) > 0;
}

void NativeMessages::read() {
  std::array<char, kReadSize> bytes;
  const ssize_t size = retryingInterrupted([&] { return ::read(_input, bytes.data(), bytes.size()); });
  // An input that fails is one that ends.
  if (size <= 0) {
    _ended = true;
    return;
  }
  _cutter.add({bytes.data(), static_cast<std::size_t>(size)});
}

}  // namespace corvane::browsers
