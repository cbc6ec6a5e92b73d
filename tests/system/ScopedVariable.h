#pragma once

#include <cstdlib>
#include <optional>
#include <string>

namespace corvane {

/// Sets an environment variable, or unsets it, for a scope.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const std::optional<std::string>& value) : _name(name) {
    if (const char* before = std::getenv(name)) _before = before;
    set(value);
  }
  ~ScopedVariable() { set(_before); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  void set(const std::optional<std::string>& value) {
    if (value) {
      setenv(_name, value->c_str(), 1);
    } else {
      unsetenv(_name);
    }
  }

  const char* _name;
  std::optional<std::string> _before;
};

}  // namespace corvane
