#pragma once

#include <exception>
#include <string>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane {

/// A failure with a name, and a reason as its description: the root of all that this code throws. The
/// outermost handler catches this type; anything else ends the process abnormally.
class PlatformException : public std::exception {
 public:
  PlatformException(std::string name, Message reason)
      : _name(std::move(name)), _message(std::move(reason)), _reason(_message.inEnglish()) {}

  const std::string& name() const { return _name; }
  /// In English, for logs and for programs.
  const std::string& reason() const { return _reason; }
  /// The reason for people, and for whoever puts it into a message of their own.
  const Message& message() const { return _message; }
  const char* what() const noexcept override { return _reason.c_str(); }

 private:
  std::string _name;
  Message _message;
  std::string _reason;
};

/// Names shared by several subsystems.
inline constexpr const char* NSObjectNotAvailableException = "NSObjectNotAvailableException";
inline constexpr const char* NSGenericException = "NSGenericException";
/// A programming error: an argument that the operation does not take.
inline constexpr const char* NSInvalidArgumentException = "NSInvalidArgumentException";

}  // namespace corvane
