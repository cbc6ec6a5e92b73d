#pragma once

#include <functional>
#include <string>

namespace corvane::loomerctl {

/// The argument that stands for standard input or output instead of a file.
inline constexpr const char* kStandardStream = "-";

/// The argument as people call it: the path, or "standard input".
std::string inputName(const std::string& path);

/// All that the file, a pipe or a device too, or standard input holds. Raises Refused when it cannot be read.
std::string readInput(const std::string& path);

/// Secrets from standard input. From a terminal each is asked for with a prompt on standard error, and what
/// is typed is not shown; otherwise they come one after the other. The caller wipes them.
class SecretInput {
 public:
  SecretInput() = default;
  ~SecretInput();
  SecretInput(const SecretInput&) = delete;
  SecretInput& operator=(const SecretInput&) = delete;

  /// The next line, without white space around it. Raises Refused when it cannot be read, holds nothing, or
  /// the user cancels.
  std::string line(const std::string& prompt);
  /// As many lines as it takes until `isComplete` of them all; on a terminal, an empty line is an end too.
  /// Raises as `line`.
  std::string lines(const std::string& prompt, const std::function<bool(const std::string&)>& isComplete);

 private:
  /// As `lines`, of what no terminal gives.
  std::string givenLines(const std::function<bool(const std::string&)>& isComplete);

  bool _isRead = false;  ///< what no terminal gives has been read, into `_rest`
  std::string _rest;
};

}  // namespace corvane::loomerctl
