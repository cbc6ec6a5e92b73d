#pragma once

#include <memory>
#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"
#include "CorvaneSyncClient/platform/loomer/session/ClientRegistry.h"

namespace corvane::loomer {

class SessionRefused;

/// What is exchanged with others around a client's session. A failure has no effect on the session.
class Exchange {
 public:
  virtual ~Exchange() = default;
  /// Before the session: changes the truth to what others have made of it.
  virtual void takeIn() = 0;
  /// After a session that succeeded.
  virtual void giveChanges() = 0;
};

/// Runs sessions of the embedded engine for one data source. One transaction spans a session: whatever ends
/// it early, the store is as it was before.
class EmbeddedSessionDriver : public LoomerSessionDriver {
 public:
  /// `clients` and `dataSource` must outlive the driver. `exchange` is null where there is nothing to
  /// exchange.
  EmbeddedSessionDriver(ClientRegistry& clients, LoomerSessionDriverDataSource& dataSource,
                        std::unique_ptr<Exchange> exchange = nullptr);
  ~EmbeddedSessionDriver() override;

  /// A client of another engine stands for the one of the same identifier in this engine.
  void _setClient(LoomerClient* client) override;
  LoomerClient* client() override { return _client; }
  bool sync() override;
  Message lastError() override { return _lastError; }
  LoomerSessionResult lastResult() override { return _lastResult; }

 private:
  /// Finds the client and reads the schema; nothing, with `lastError` set, when there is none.
  std::optional<RecordSchema> prepare();
  void findClient();
  /// Stores what the guard refused, so that it can be looked at and approved. Answers what there is to say
  /// when that fails.
  Message storeRefusal(const SessionRefused& refused);
  /// Rolls the session back, has the client know of it, and keeps what it stores then.
  void cancel(const Message& reason, bool tookLock);
  /// As `cancel`; what the client raises then is dropped.
  void cancelQuietly(const Message& reason, bool tookLock) noexcept;
  void keepValues(bool tookLock) noexcept;
  void rollBack() noexcept;

  ClientRegistry& _clients;
  LoomerSessionDriverDataSource& _dataSource;
  std::unique_ptr<Exchange> _exchange;
  String _identifier;  // of the client that was set; absent for the data source's own
  EmbeddedClient* _client = nullptr;
  Message _lastError;  // empty after a success
  LoomerSessionResult _lastResult;
};

}  // namespace corvane::loomer
