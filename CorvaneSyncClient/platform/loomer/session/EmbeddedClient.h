#pragma once

#include "CorvaneSyncClient/platform/foundation/values/OrderedMap.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/store/ClientTable.h"

namespace corvane::loomer {

/// A client registered in the embedded engine's store.
class EmbeddedClient : public LoomerClient {
 public:
  /// `row` is the client's number in the store, which must outlive this object.
  EmbeddedClient(TruthStore& store, String identifier, std::int64_t row)
      : _table(store), _identifier(std::move(identifier)), _row(row) {}

  String clientIdentifier() const override { return _identifier; }
  std::optional<Value> objectForKey(const String& key) override;
  /// Durable when it returns; inside a session, with the session. Raises LoomerStoreException.
  void setObject(const std::optional<Value>& object, const String& key) override;

  /// The client's number in the store.
  std::int64_t row() const { return _row; }

  /// From here on values are held back: a session has begun, but its transaction has not.
  void holdValuesBack() { _holding = true; }
  /// Stores the values held back, in the transaction that is open.
  void storeHeldValues();
  /// Forgets the values held back.
  void dropHeldValues();

 private:
  ClientTable _table;
  String _identifier;
  std::int64_t _row;
  bool _holding = false;
  OrderedMap<std::optional<Value>> _held;
};

}  // namespace corvane::loomer
