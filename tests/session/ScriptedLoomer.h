#pragma once

#include <functional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerManager.h"

namespace corvane {

/// A registered client that keeps its values in memory, where a test can see them.
class MemoryLoomerClient : public LoomerClient {
 public:
  String clientIdentifier() const override { return identifier; }
  std::optional<Value> objectForKey(const String& key) override {
    const Value* value = values.find(key);
    return value ? std::optional(*value) : std::nullopt;
  }
  void setObject(const std::optional<Value>& object, const String& key) override {
    if (object) {
      values.set(key, *object);
    } else {
      values.remove(key);
    }
  }

  String identifier;
  Dictionary values;
};

/// An engine of one client whose sessions do what a test says. Current for as long as it lives.
class ScriptedLoomer : public LoomerManager {
 public:
  struct Registration {
    String identifier;
    String bundleId;   ///< absent for a registration by the description's path
    std::string path;  ///< of the description; relative where there is a bundle
  };
  /// What a session does; answers whether it succeeds.
  using Script = std::function<bool(LoomerSessionDriverDataSource& dataSource, LoomerSessionDriver& driver)>;

  LoomerClient* clientWithIdentifier(const String& identifier) override {
    return registered && client.identifier == identifier ? &client : nullptr;
  }
  LoomerClient* registerClientWithIdentifier(const String& identifier, const std::string& path) override {
    return enter({identifier, String(), path});
  }
  LoomerClient* registerClientWithIdentifier(const String& identifier, const String& bundleId,
                                             const std::string& path) override {
    return enter({identifier, bundleId, path});
  }
  void unregisterClient(LoomerClient&) override { registered = false; }
  LoomerNews newsForClient(const String&) override { return {}; }
  std::unique_ptr<LoomerSessionDriver> sessionDriverWithDataSource(
      LoomerSessionDriverDataSource& dataSource) override {
    return std::make_unique<Driver>(*this, dataSource);
  }

  Script script = [](LoomerSessionDriverDataSource&, LoomerSessionDriver&) { return true; };
  String lastError = "scripted";
  MemoryLoomerClient client;
  bool registered = false;
  std::vector<Registration> registrations;

 private:
  class Driver : public LoomerSessionDriver {
   public:
    Driver(ScriptedLoomer& loomer, LoomerSessionDriverDataSource& dataSource)
        : _loomer(loomer), _dataSource(dataSource) {}
    void _setClient(LoomerClient* client) override { _client = client; }
    LoomerClient* client() override { return _client; }
    bool sync() override { return _loomer.script(_dataSource, *this); }
    Message lastError() override { return _loomer.lastError.toString(); }
    LoomerSessionResult lastResult() override { return {}; }

   private:
    ScriptedLoomer& _loomer;
    LoomerSessionDriverDataSource& _dataSource;
    LoomerClient* _client = nullptr;
  };

  LoomerClient* enter(Registration registration) {
    client.identifier = registration.identifier;
    registrations.push_back(std::move(registration));
    registered = true;
    return &client;
  }

  LoomerManagerScope _scope{*this};
};

}  // namespace corvane
