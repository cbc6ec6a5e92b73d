#include "CorvaneSyncClient/platform/loomer/session/EmbeddedSessionDriver.h"

#include "CorvaneSyncClient/platform/loomer/api/FileUrl.h"
#include "CorvaneSyncClient/platform/loomer/session/Session.h"
#include "CorvaneSyncClient/platform/loomer/session/SessionCancelled.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

EmbeddedSessionDriver::EmbeddedSessionDriver(ClientRegistry& clients,
                                             LoomerSessionDriverDataSource& dataSource,
                                             std::unique_ptr<Exchange> exchange)
    : _clients(clients), _dataSource(dataSource), _exchange(std::move(exchange)) {}

EmbeddedSessionDriver::~EmbeddedSessionDriver() = default;

void EmbeddedSessionDriver::_setClient(LoomerClient* client) {
  _identifier = client ? client->clientIdentifier() : String();
  _client = client ? _clients.find(_identifier) : nullptr;
}

bool EmbeddedSessionDriver::sync() {
  if (_exchange) _exchange->takeIn();
  _lastError = String();
  const auto schema = prepare();
  if (!schema) return false;
  Session session(_clients.store(), *this, _dataSource, *_client, *schema);
  try {
    session.run();
  } catch (const SessionRefused& refused) {
    rollBack();
    cancel(refused.reason() + storeRefusal(refused), session.tookLock());
    return false;
  } catch (const SessionCancelled& cancelled) {
    cancel(cancelled.reason(), session.tookLock());
    return false;
  } catch (const LoomerStoreException& exception) {
    cancel(exception.reason(), session.tookLock());
    return false;
  } catch (const PlatformException& exception) {
    cancelQuietly(exception.reason(), session.tookLock());
    throw;
  } catch (...) {
    cancelQuietly("The client failed with an exception of an unknown kind. Nothing was changed.",
                  session.tookLock());
    throw;
  }
  if (_exchange) _exchange->giveChanges();
  return true;
}

std::optional<RecordSchema> EmbeddedSessionDriver::prepare() {
  try {
    findClient();
    return readRecordSchema(_dataSource.schemaBundleURLs());
  } catch (const SessionCancelled& cancelled) {
    _lastError = cancelled.reason();
  } catch (const SchemaProblem& problem) {
    _lastError = problem.reason();
  } catch (const LoomerStoreException& exception) {
    _lastError = exception.reason();
  }
  return std::nullopt;
}

void EmbeddedSessionDriver::findClient() {
  const String identifier = _identifier ? _identifier : _dataSource.clientIdentifier();
  // Looked up anew: it may have been unregistered since it was set, by another process too.
  _client = _clients.find(identifier);
  if (_client) return;
  const auto url = _dataSource.clientDescriptionURL();
  const auto path = url ? pathOfFileUrl(*url) : std::nullopt;
  std::string problem = "it cannot be found";
  if (path) _client = _clients.registerClient(identifier, *path, problem);
  if (_client) return;
  throw SessionCancelled{
      format("The client %@ is not registered, and its description (%@) cannot be used to "
             "register it: %@. Install the client again.",
             identifier, url ? url->text : String("there is none"), problem)};
}

std::string EmbeddedSessionDriver::storeRefusal(const SessionRefused& refused) {
  try {
    RefusalTable(_clients.store()).enter(_client->row(), refused.refusal(), refused.deletions());
    return {};
  } catch (const PlatformException& exception) {
    // The session is refused all the same, and so is the next one, which may be stored.
    return " But there is nothing to approve yet, since what was refused could not be noted: " +
           exception.reason();
  }
}

void EmbeddedSessionDriver::rollBack() noexcept {
  _clients.store().database().rollback();
  _client->dropHeldValues();
}

void EmbeddedSessionDriver::cancel(const std::string& reason, bool tookLock) {
  rollBack();
  _lastError = reason;
  _client->holdValuesBack();
  try {
    _dataSource.sessionDriverWillCancelSession(*this);
  } catch (...) {
    keepValues(tookLock);
    throw;
  }
  keepValues(tookLock);
}

void EmbeddedSessionDriver::cancelQuietly(const std::string& reason, bool tookLock) noexcept {
  try {
    cancel(reason, tookLock);
  } catch (...) {
    // The exception that ended the session is the one to be known; it goes on to the caller.
  }
}

void EmbeddedSessionDriver::keepValues(bool tookLock) noexcept {
  // Where another session would not let this one begin, it will not let it write now either: waiting on would
  // only hold the caller up. Nothing was changed on either side, so that the values from before still hold.
  constexpr double kTimeoutSeconds = 60.0;
  try {
    if (_clients.store().begin(tookLock ? kTimeoutSeconds : 0.0)) {
      _client->storeHeldValues();
      ClientTable(_clients.store()).setCancelled(_client->row());
      _clients.store().database().commit();
    }
  } catch (...) {
    // The store is in trouble, or memory is: `lastError` already says why the session failed.
  }
  rollBack();
}

}  // namespace corvane::loomer
