#pragma once

#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

namespace corvane {

/// The error of the system call that has just failed.
inline std::error_code lastSystemError() { return {errno, std::system_category()}; }

/// Repeats a system call for as long as a signal interrupts it.
template <typename Call>
auto retryingInterrupted(Call call) {
  while (true) {
    const auto result = call();
    if (result != -1 || errno != EINTR) return result;
  }
}

/// Owns an open file descriptor, or none (-1).
class FileDescriptor {
 public:
  explicit FileDescriptor(int number = -1) : _number(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : _number(std::exchange(other._number, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(_number, other._number);
    return *this;
  }
  ~FileDescriptor() {
    if (_number >= 0) ::close(_number);  // who cares for the result has called close() below
  }

  int number() const { return _number; }
  explicit operator bool() const { return _number >= 0; }
  /// Closes now and answers a write error that the system has only now found out. Linux closes the descriptor
  /// also when a signal interrupts, so that is no failure.
  std::error_code close() {
    const int result = ::close(std::exchange(_number, -1));
    return result == 0 || errno == EINTR ? std::error_code() : lastSystemError();
  }
  /// Gives the descriptor away.
  int release() { return std::exchange(_number, -1); }

 private:
  int _number;
};

/// Writes all of `contents`.
std::error_code writeAll(const FileDescriptor& file, std::string_view contents);

}  // namespace corvane
