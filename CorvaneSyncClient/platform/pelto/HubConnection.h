#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/pelto/HubAddress.h"
#include "CorvaneSyncClient/platform/pelto/HubValues.h"
#include "CorvaneSyncClient/platform/system/Deadline.h"

struct pg_conn;
struct pg_result;

namespace corvane::pelto {

/// How long to wait for the service, in seconds.
struct HubTimeouts {
  double connect = 5.0;     ///< for a connection: host lookup, all addresses, TLS and password together
  double statement = 15.0;  ///< for one statement, from the first byte sent to the last byte received
  double exchange = 900.0;  ///< for the whole exchange
};

/// The server rolled the transaction back because it conflicted with another one; it can be retried.
class HubConflict : public PlatformException {
 public:
  /// `failure` is the DotPeltoException to report when it is not retried.
  explicit HubConflict(PlatformException failure) : PlatformException(std::move(failure)) {}
};

/// The result of a statement: one row or none. Accessors raise DotPeltoException when the column is not of
/// the type that they read.
class HubRows {
 public:
  /// Takes ownership of `result`; null means no row. Keeps a reference to `address`.
  HubRows(pg_result* result, const HubAddress& address);

  /// The number of rows.
  int count() const;
  /// Whether the value is NULL.
  bool isNull(int row, int column) const;
  /// The value's size in bytes; 0 for NULL.
  std::size_t length(int row, int column) const;
  /// A bigint.
  std::int64_t big(int row, int column) const;
  /// An integer.
  std::int32_t integer(int row, int column) const;
  /// A boolean.
  bool boolean(int row, int column) const;
  /// A bytea as text; absent for NULL. Bytes that are not UTF-8 become U+FFFD: this program never sends them.
  String textOfBytes(int row, int column) const;
  /// A uuid in string form; absent for NULL.
  String uuid(int row, int column) const;

 private:
  const char* value(int row, int column, int size) const;

  struct Deleter {
    void operator()(pg_result* result) const;
  };
  std::unique_ptr<pg_result, Deleter> _result;
  const HubAddress& _address;
};

/// A connection to the service. Together with HubAddress this is the only code that uses libpq. Nothing that
/// it sets on the server outlives a transaction, so it works through a pooler, and no statement waits beyond
/// its deadline. Every failure raises DotPeltoException, or a HubConflict when the server rolled the
/// transaction back in favour of another one. After a failure the connection cannot be used any more, and the
/// server rolls back an open transaction.
class HubConnection {
 public:
  /// Connects to the first server and address that answers; each gets an equal share of the time. Keeps a
  /// reference to `address`. Nothing here or below waits beyond `end`.
  HubConnection(const HubAddress& address, const HubTimeouts& timeouts, Deadline end);
  ~HubConnection();
  HubConnection(const HubConnection&) = delete;
  HubConnection& operator=(const HubConnection&) = delete;

  /// Runs statements without parameters and ignores their rows. `purpose` ("read what changed"), here and
  /// below, is for error messages.
  void run(const std::string& statements, const char* purpose);
  /// Runs one statement that returns at most one row.
  HubRows run(const char* statement, const std::vector<HubValue>& parameters, const char* purpose);
  /// Runs one statement and passes its rows to `take` one by one as they arrive, so that only one is in
  /// memory. An exception from `take` ends it.
  void forEachRow(const char* statement, const std::vector<HubValue>& parameters, const char* purpose,
                  const std::function<void(HubRows)>& take);

  /// Raises DotPeltoException for a service that sends what it cannot have stored; `what` says what it did.
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

/// A DotPeltoException about the service at `address`, with a purpose ("read what changed"), the problem
/// ("the server is down") and a remedy ("Try again.").
PlatformException hubException(const HubAddress& address, const std::string& purpose, const std::string& what,
                               const std::string& remedy);

}  // namespace corvane::pelto
