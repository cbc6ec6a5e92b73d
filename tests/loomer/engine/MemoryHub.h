#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/Hub.h"
#include "tests/pelto/chain/MemoryPlace.h"

namespace corvane {

/// One account of an online service in memory, shared by the computers of a test. A test makes it fail, and
/// puts it back to earlier states. The account is a table of records, or a chain at a place in memory, and
/// then the table only tells a test what was given.
class MemoryHub {
 public:
  struct State {
    pelto::HubState now;
    std::map<std::string, pelto::HubRecord> records;  ///< tombstones included
    std::map<std::string, std::int64_t> revisions;    ///< of each record
    std::map<std::int64_t, std::string> pushIds;      ///< of each revision
    /// By push id, the states given again, and the revision of the push that contains them.
    std::map<std::string, std::pair<pelto::HubState, std::int64_t>> givenAgain;
    std::int64_t forgotten = 0;    ///< the newest tombstone dropped
    MemoryPlace::Objects objects;  ///< of the chain
  };
  enum class Kind { table, chain };

  explicit MemoryHub(Kind kind = Kind::table);

  /// The account as one more computer reaches it, which keeps what it knows of it in `directory`. This object
  /// must outlive it.
  std::unique_ptr<pelto::Hub> connect(const std::string& directory);
  /// Forgets everything but which account it is, as a service that lost its data.
  void empty();
  /// Forgets tombstones, as a service does after a long time.
  void dropTombstones();
  std::size_t live() const;
  /// Of the live records' names and addresses.
  std::size_t liveBytes() const;

  Kind kind;
  State state;
  bool enabled = true;
  std::int64_t limit = 1'000'000;
  std::int64_t byteLimit = 1 << 30;

  /// Called with "remote changes", "push", "pushed" and "has push"; what it raises, the call raises. At
  /// "pushed" the push stands already.
  std::function<void(const std::string&)> onCall;
  std::vector<std::string> calls;
  /// Of the chain: as MemoryPlace::onCall.
  std::function<void(const std::string&)> onPlaceCall;
  std::size_t placeRequests = 0;  ///< as MemoryPlace::requests

 private:
  class Connection;
  class ChainConnection;
};

/// As tests over each kind are called.
inline void PrintTo(MemoryHub::Kind kind, std::ostream* out) {
  *out << (kind == MemoryHub::Kind::table ? "Table" : "Chain");
}

/// What a test has the service raise.
[[noreturn]] void failAsService(const std::string& reason);

}  // namespace corvane
