#pragma once

#include <exception>
#include <string>
#include <utility>

namespace corvane {

/// A hard failure, known by its name and told by its reason; its description is its reason. The only
/// exception type that the outermost handler catches; anything else ends the process abnormally.
class PlatformException : public std::exception {
 public:
  PlatformException(std::string name, std::string reason)
      : _name(std::move(name)), _reason(std::move(reason)) {}

  const std::string& name() const { return _name; }
  const std::string& reason() const { return _reason; }
  const char* what() const noexcept override { return _reason.c_str(); }

 private:
  std::string _name;
  std::string _reason;
};

/// Names shared by several subsystems.
inline constexpr const char* NSObjectNotAvailableException = "NSObjectNotAvailableException";
inline constexpr const char* NSGenericException = "NSGenericException";
/// A programming error: an argument that the operation does not take.
inline constexpr const char* NSInvalidArgumentException = "NSInvalidArgumentException";

}  // namespace corvane
