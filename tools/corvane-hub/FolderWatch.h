#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

namespace corvane::hubserver {

/// Tells when names appear in directories, and when one file is written, whichever process does it (inotify).
class FolderWatch {
 public:
  /// Whoever waits for a name. Told once at most.
  class Waiter {
   public:
    virtual ~Waiter() = default;
    virtual void nameAppeared() = 0;
  };

  /// Raises HubFailure when the system has no more watches.
  explicit FolderWatch(boost::asio::io_context& context);

  /// Has `written` called after each time that somebody wrote the file.
  void watchFile(const std::string& path, std::function<void()> written);
  /// Has the waiter told when `name` appears in `directory`, which exists. What appeared before is not told.
  /// False when the directory is missing. Raises HubFailure when the system has no more watches.
  bool add(const std::string& directory, const std::string& name, Waiter& waiter);
  /// Before it goes, or once it need not be told; harmless for one that does not wait.
  void remove(Waiter& waiter);

 private:
  struct Directory {
    std::unordered_multimap<std::string, Waiter*> waiters;  // by name
  };

  void listen();
  void take();
  void tell(int watch, std::string_view name);
  void tellAll();

  boost::asio::posix::stream_descriptor _notices;
  std::unordered_map<int, Directory> _directories;  // by inotify's number
  std::unordered_map<Waiter*, std::pair<int, std::string>> _places;
  int _file = -1;
  std::function<void()> _written;
};

}  // namespace corvane::hubserver
