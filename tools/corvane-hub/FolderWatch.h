#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "tools/corvane-hub/HubFailure.h"

namespace corvane::hubserver {

/// The system has no more watches for this user.
class NoMoreWatches : public HubFailure {
 public:
  using HubFailure::HubFailure;
};

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
  /// Has the waiter told when `name` appears in `directory`, and of nothing that it waited for before. What
  /// has appeared by then is not told. False, and all as it was, when the directory is missing. Raises
  /// NoMoreWatches, or HubFailure.
  bool add(const std::string& directory, const std::string& name, Waiter& waiter);
  /// Before it goes, or once it need not be told; harmless for one that does not wait.
  void remove(Waiter& waiter);

 private:
  using Place = std::pair<int, std::string>;  // inotify's number of a directory, and a name
  using Waiters = std::unordered_multimap<std::string, Waiter*>;  // by name

  void listen();
  void take();
  void tell(int watch, std::string_view name);
  void tellAll();
  void withdraw(const Place& place, Waiter& waiter);

  boost::asio::posix::stream_descriptor _notices;
  std::unordered_map<int, Waiters> _directories;  // by inotify's number
  std::unordered_map<Waiter*, Place> _places;
  int _file = -1;
  std::function<void()> _written;
};

}  // namespace corvane::hubserver
