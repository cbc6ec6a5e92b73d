#include "tools/corvane-hub/FolderWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <vector>

#include "CorvaneSyncClient/platform/system/files/FileDescriptor.h"

namespace corvane::hubserver {

FolderWatch::FolderWatch(boost::asio::io_context& context) : _notices(context) {
  FileDescriptor descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!descriptor) {
    throw HubFailure("nothing can be watched (fs.inotify.max_user_instances)", lastSystemError());
  }
  _notices.assign(descriptor.release());
  listen();
}

void FolderWatch::watchFile(const std::string& path, std::function<void()> written) {
  _written = std::move(written);
  _file = ::inotify_add_watch(_notices.native_handle(), path.c_str(), IN_CLOSE_WRITE);
  if (_file < 0) throw HubFailure(path + " cannot be watched", lastSystemError());
}

bool FolderWatch::add(const std::string& directory, const std::string& name, Waiter& waiter) {
  const int watch = ::inotify_add_watch(_notices.native_handle(), directory.c_str(),
                                        IN_CREATE | IN_MOVED_TO | IN_ONLYDIR | IN_EXCL_UNLINK);
  if (watch < 0 && errno == ENOENT) return false;
  if (watch < 0 && errno == ENOSPC) {
    throw NoMoreWatches("no more folders can be watched: raise fs.inotify.max_user_watches (sysctl)");
  }
  if (watch < 0) throw HubFailure(directory + " cannot be watched", lastSystemError());
  _directories[watch].emplace(name, &waiter);
  const Place former = std::exchange(_places[&waiter], {watch, name});
  withdraw(former, waiter);
  return true;
}

void FolderWatch::remove(Waiter& waiter) {
  const auto place = _places.find(&waiter);
  if (place == _places.end()) return;
  withdraw(place->second, waiter);
  _places.erase(place);
}

/// Takes the waiter from a place, if it is there, and ends a watch that nobody needs any more.
void FolderWatch::withdraw(const Place& place, Waiter& waiter) {
  const auto directory = _directories.find(place.first);
  if (directory == _directories.end()) return;
  const auto [first, last] = directory->second.equal_range(place.second);
  for (auto each = first; each != last; ++each) {
    if (each->second != &waiter) continue;
    directory->second.erase(each);
    break;
  }
  if (!directory->second.empty()) return;
  // Fails where the directory is gone, and its watch with it.
  ::inotify_rm_watch(_notices.native_handle(), place.first);
  _directories.erase(directory);
}

void FolderWatch::listen() {
  _notices.async_wait(boost::asio::posix::stream_descriptor::wait_read,
                      [this](boost::system::error_code error) {
                        if (error) return;  // the server ends
                        take();
                        listen();
                      });
}

void FolderWatch::take() {
  alignas(inotify_event) char buffer[16 * 1024];
  while (true) {
    const ssize_t size =
        retryingInterrupted([&] { return ::read(_notices.native_handle(), buffer, sizeof buffer); });
    if (size <= 0) return;  // there are no more notices; nothing else fails
    for (ssize_t at = 0; at < size;) {
      const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      if (event->mask & IN_Q_OVERFLOW) {
        tellAll();
      } else if (event->wd == _file) {
        _written();
      } else if (event->len > 0) {
        tell(event->wd, event->name);
      }
    }
  }
}

void FolderWatch::tell(int watch, std::string_view name) {
  const auto directory = _directories.find(watch);
  if (directory == _directories.end()) return;
  const auto [first, last] = directory->second.equal_range(std::string(name));
  std::vector<Waiter*> told;
  for (auto each = first; each != last; ++each) told.push_back(each->second);
  for (Waiter* waiter : told) {
    remove(*waiter);
    waiter->nameAppeared();
  }
}

void FolderWatch::tellAll() {
  // Notices were lost: everybody looks.
  std::vector<Waiter*> told;
  for (const auto& [waiter, place] : _places) told.push_back(waiter);
  for (Waiter* waiter : told) {
    remove(*waiter);
    waiter->nameAppeared();
  }
  if (_written) _written();
}

}  // namespace corvane::hubserver
