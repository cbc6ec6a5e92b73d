#include "CorvaneSyncClient/platform/loomer/session/EmbeddedClient.h"

namespace corvane::loomer {

std::optional<Value> EmbeddedClient::objectForKey(const String& key) {
  if (const std::optional<Value>* held = _held.find(key)) return *held;
  return _table.value(_row, key);
}

void EmbeddedClient::setObject(const std::optional<Value>& object, const String& key) {
  if (_holding) {
    _held.set(key, object);
  } else {
    _table.setValue(_row, key, object);
  }
}

void EmbeddedClient::storeHeldValues() {
  for (const auto& [key, value] : _held) _table.setValue(_row, key, value);
  dropHeldValues();
}

void EmbeddedClient::dropHeldValues() {
  _holding = false;
  _held.clear();
}

}  // namespace corvane::loomer
