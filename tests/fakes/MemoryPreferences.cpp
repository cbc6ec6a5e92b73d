#include "tests/fakes/MemoryPreferences.h"

namespace corvane {

std::optional<Value> MemoryPreferences::value(const std::string& domain, const std::string& key) {
  ++consultations;
  const Value* found = domains[domain].find(std::string_view(key));
  return found ? std::optional<Value>(*found) : std::nullopt;
}

bool MemoryPreferences::booleanUserDefault(const std::string& key) {
  ++consultations;
  for (const char* domain : kUserDefaultsDomains) {
    if (const Value* found = domains[domain].find(std::string_view(key))) return readsAsTrue(*found);
  }
  return false;
}

}  // namespace corvane
