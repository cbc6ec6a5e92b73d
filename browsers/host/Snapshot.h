#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "browsers/host/HeldTree.h"

namespace corvane::browsers {

/// What is kept of a client between its sessions. To the engine it is what a bookmarks file is: once it is
/// saved, the client has taken a delivery. The browser is brought in line with it afterwards.
struct Snapshot {
  std::int64_t generation = 0;  ///< grows with each session that saves it
  /// The generations that the browser was told, ascending; the latest ones.
  std::vector<std::int64_t> told;
  std::string run;  ///< of the browser
  Date saved;
  std::optional<Date> ended;  ///< when the connection did; nothing where the host was killed
  bool isFinished = true;     ///< whether the browser has been given all that it can hold
  HeldTree tree;
};

/// The file of one client's snapshot.
class SnapshotFile {
 public:
  explicit SnapshotFile(std::string path) : _path(std::move(path)) {}

  /// Nothing where there is none, or none that can be used, which is a line in the system log.
  std::optional<Snapshot> read() const;
  /// Durable once it returns. Raises PlatformException, which names path and cause.
  void write(const Snapshot& snapshot) const;

 private:
  std::string _path;
};

/// The directory of all snapshots, beside the user's store, and the path of one there.
std::string snapshotDirectory();
std::string snapshotPath(const std::string& token);

/// A snapshot as bytes, and back. Raises PropertyListException for what is none.
std::string snapshotBytes(const Snapshot& snapshot);
Snapshot snapshotOf(std::string_view bytes);

}  // namespace corvane::browsers
