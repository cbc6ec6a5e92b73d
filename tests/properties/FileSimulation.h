#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tests/loomer/engine/EngineHome.h"
#include "tests/properties/BrowserFile.h"

namespace corvane {

/// One user's home with several bookmarks files in it, the tool's own session code and the embedded engine
/// over a store of their own. Everything but the clock and the uids is real.
class FileSimulation {
 public:
  explicit FileSimulation(std::size_t clients);
  FileSimulation(const FileSimulation&) = delete;
  FileSimulation& operator=(const FileSimulation&) = delete;

  std::size_t size() const { return _clients; }
  BrowserFile file(std::size_t client) const;
  /// The browser writes the file; its modification date becomes newer than it was.
  void write(std::size_t client, const BrowserFile& contents);
  std::string bytes(std::size_t client) const;
  Date date(std::size_t client) const;

  /// One session as the tool runs it. Raises std::logic_error when it does not succeed.
  void sync(std::size_t client);
  /// A session while whose save the browser writes: `browser` is called once, before the save begins.
  void syncWhile(std::size_t client, const std::function<void()>& browser);
  /// A session that dies at the `operation`-th change that it makes to the file system (counted from 1), or
  /// before its commit when it makes fewer.
  void syncKilled(std::size_t client, int operation);
  void round();

  /// Undoes the last session that changed the truth. Answers false when there was none.
  bool undoLast();

  std::int64_t revision();
  std::size_t live();
  std::int64_t sessions() const { return _sessions; }
  /// Has the next sessions merge everything, whatever the clients agreed to.
  void forgetAgreements();
  std::size_t agreements();
  /// Everything that a session leaves in the store, but for its times and what agreements say.
  std::string storeText();
  void requireSound() { corvane::requireSound(_home.store()); }
  /// Raises unless all files hold one tree and another round of sessions changes neither file nor truth.
  void requireConverged();

 private:
  struct Killed {};

  std::string name(std::size_t client) const;
  std::string path(std::size_t client) const;
  bool run(std::size_t client);

  FakePlatform _platform;
  EngineHome _home{_platform};
  std::size_t _clients;
  std::vector<Date> _newest;  ///< date of each file so far
  std::int64_t _sessions = 0;
};

}  // namespace corvane
