#include "tools/loomerctl/ChangeWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cstdint>
#include <string_view>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomerctl {

namespace {

constexpr std::uint32_t kEvents = IN_MODIFY | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;

// Files of the store that each reader touches, and temporary ones.
bool saysSomething(std::string_view name) {
  return name.ends_with(".db") || name.ends_with("-wal") || name.ends_with(".plist");
}

}  // namespace

ChangeWatch::ChangeWatch() : _events(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (_events) return;
  throw PlatformException("LoomerctlWatchFailed", tr("cannot watch files: %1", lastSystemError().message()));
}

void ChangeWatch::add(const std::string& directory) {
  // Fails for a directory that is not there, which is tried again at the next look.
  static_cast<void>(inotify_add_watch(_events.number(), directory.c_str(), kEvents | IN_ONLYDIR));
}

bool ChangeWatch::take() {
  bool any = false;
  alignas(inotify_event) char buffer[4096];
  for (;;) {
    const ssize_t count = retryingInterrupted([&] { return read(_events.number(), buffer, sizeof buffer); });
    if (count <= 0) return any;
    for (const char* at = buffer; at < buffer + count;) {
      const auto* const event = reinterpret_cast<const inotify_event*>(at);
      const bool isLost = (event->mask & IN_Q_OVERFLOW) != 0;
      // A log that is deleted was the last reader's.
      const bool isClosing = (event->mask & IN_DELETE) && std::string_view(event->name).ends_with("-wal");
      if (isLost || (event->len > 0 && saysSomething(event->name) && !isClosing)) any = true;
      at += sizeof(inotify_event) + event->len;
    }
  }
}

}  // namespace corvane::loomerctl
