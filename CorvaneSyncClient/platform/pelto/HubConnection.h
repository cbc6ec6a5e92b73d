#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/pelto/Deadline.h"
#include "CorvaneSyncClient/platform/pelto/HubAddress.h"
#include "CorvaneSyncClient/platform/pelto/HubValues.h"

struct pg_conn;
struct pg_result;

namespace corvane::pelto {

/// How long to wait for the service, in seconds.
struct HubTimeouts {
  double connect = 5.0;     ///< for a connection: names, addresses, TLS and password together
  double statement = 15.0;  ///< for one statement, from sending its first byte to its last answer
  double exchange = 900.0;  ///< for everything that is asked of it
};

/// Another transaction was in the way, and the server undid this one: it is to be run again.
class HubConflict : public PlatformException {
 public:
  explicit HubConflict(PlatformException failure) : PlatformException(std::move(failure)) {}
};

/// What a statement answered: one row, or none. Accessors raise DotPeltoException where the column is not
/// what they read.
class HubRows {
 public:
  /// Takes `result` over; null: no row.
  HubRows(pg_result* result, const HubAddress& address);

  int count() const;
  bool isNull(int row, int column) const;
  /// How many bytes the value has; 0 for NULL.
  std::size_t length(int row, int column) const;
  std::int64_t big(int row, int column) const;
  std::int32_t integer(int row, int column) const;
  bool boolean(int row, int column) const;
  /// The absent string for NULL, here and below.
  /// Whatever is no UTF-8 comes as U+FFFD: such bytes are nothing that this program can have given.
  String textOfBytes(int row, int column) const;
  /// In the string form.
  String uuid(int row, int column) const;

 private:
  const char* value(int row, int column, int size) const;

  struct Deleter {
    void operator()(pg_result* result) const;
  };
  std::unique_ptr<pg_result, Deleter> _result;
  const HubAddress& _address;
};

/// A connection to the service: with HubAddress the only code that speaks libpq. It sets up nothing on the
/// server that outlives a transaction, so that poolers may stand in between, and no statement waits beyond
/// its deadline. Every failure raises DotPeltoException, a HubConflict where the server undid the transaction
/// for another one's sake; the connection is then of no more use, and the
/// server undoes the transaction that was open. One thread.
class HubConnection {
 public:
  /// Connects. Of several servers and addresses each gets its part of the time; the first that answers is
  /// taken. Keeps a reference to `address`. Whatever is asked, nothing is waited for beyond `end`.
  HubConnection(const HubAddress& address, const HubTimeouts& timeouts, Deadline end);
  ~HubConnection();
  HubConnection(const HubConnection&) = delete;
  HubConnection& operator=(const HubConnection&) = delete;

  /// Runs statements without parameters, whose rows nobody wants. `purpose` ("read what changed") is for
  /// messages.
  void run(const std::string& statements, const char* purpose);
  /// Runs one statement that answers one row at most.
  HubRows run(const char* statement, const std::vector<HubValue>& parameters, const char* purpose);
  /// Runs one statement and hands its rows over one by one, as they come: none waits in memory for the
  /// others. What `take` raises ends it.
  void forEachRow(const char* statement, const std::vector<HubValue>& parameters, const char* purpose,
                  const std::function<void(HubRows)>& take);

  /// Raises for a service that gives what nobody can have given it: `what` it did.
  [[noreturn]] void failMalformed(const char* purpose, const std::string& what) const;

 private:
  void awaitSending(Deadline deadline, const char* purpose);
  void awaitResults(const char* purpose, const std::function<void(HubRows)>& take);
  pg_result* nextResult(Deadline deadline, const char* purpose);
  [[noreturn]] void failCutOff(const char* purpose) const;
  [[noreturn]] void failTimedOut(const char* purpose) const;

  const HubAddress& _address;
  HubTimeouts _timeouts;
  Deadline _end;
  pg_conn* _connection = nullptr;
};

/// A DotPeltoException about the service at `address`: "read what changed", "what is wrong" and "What to do."
PlatformException hubException(const HubAddress& address, const std::string& purpose, const std::string& what,
                               const std::string& remedy);

}  // namespace corvane::pelto
