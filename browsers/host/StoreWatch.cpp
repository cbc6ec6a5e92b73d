#include "browsers/host/StoreWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <string_view>

#include "CorvaneSyncClient/platform/system/SystemLog.h"
#include "CorvaneSyncClient/platform/system/files/TemporaryNames.h"

namespace corvane::browsers {

StoreWatch::StoreWatch(const std::string& store) : _name(Place(store).name) {
  _notices = FileDescriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  const std::string directory = Place(store).directory;
  const bool watches = _notices && ::inotify_add_watch(_notices.number(), directory.c_str(), IN_MODIFY) >= 0;
  if (watches) return;
  systemLog("%@ cannot be watched for changes of other clients: %@", directory, lastSystemError().message());
  _notices = FileDescriptor();
}

// The write-ahead log has the store's name in front.
bool StoreWatch::wasWritten() {
  alignas(inotify_event) char buffer[4096];
  bool written = false;
  while (_notices) {
    const ssize_t size =
        retryingInterrupted([&] { return ::read(_notices.number(), buffer, sizeof buffer); });
    if (size <= 0) break;  // there are no more notices; nothing else fails
    for (ssize_t at = 0; at < size;) {
      const auto* const event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      const std::string_view name = event->len > 0 ? std::string_view(event->name) : std::string_view();
      written |= (event->mask & IN_Q_OVERFLOW) != 0 || name == _name || name == _name + "-wal";
    }
  }
  return written;
}

}  // namespace corvane::browsers
