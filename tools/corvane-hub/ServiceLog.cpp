#include "tools/corvane-hub/ServiceLog.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::hubserver {

void logLine(Gravity gravity, std::string_view text) {
  static const bool isJournal = std::getenv("JOURNAL_STREAM") != nullptr;
  const std::string prefix =
      isJournal ? "<" + std::to_string(static_cast<int>(gravity)) + ">" : "corvane-hub: ";
  const std::string line = prefix + std::string(text) + '\n';
  // One write a line, so that no two mix. Nobody is left to tell where it fails.
  [[maybe_unused]] const ssize_t count =
      retryingInterrupted([&] { return ::write(STDERR_FILENO, line.data(), line.size()); });
}

}  // namespace corvane::hubserver
