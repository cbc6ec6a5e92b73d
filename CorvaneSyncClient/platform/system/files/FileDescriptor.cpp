#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane {

std::error_code writeAll(const FileDescriptor& file, std::string_view contents) {
  while (!contents.empty()) {
    const ssize_t count =
        retryingInterrupted([&] { return ::write(file.number(), contents.data(), contents.size()); });
    if (count < 0) return lastSystemError();
    contents.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

}  // namespace corvane
