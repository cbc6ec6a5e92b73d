#pragma once

#include <string_view>

#include "CorvaneSyncClient/platform/system/ProcessInfo.h"

namespace corvane {

/// What the kernel, the environment and the password database say. Nothing is kept: every call asks anew.
class LinuxProcessInfo : public ProcessInfo {
 public:
  /// `sharedTemporaryDirectory` is where the user's temporary directory is made when the environment names
  /// none.
  explicit LinuxProcessInfo(std::string sharedTemporaryDirectory = "/tmp")
      : _sharedTemporaryDirectory(std::move(sharedTemporaryDirectory)) {}

  int processId() override;
  std::string processName() override;
  std::string hostName() override;
  /// The user's number where the password database has no entry.
  std::string userName() override;
  std::string fullUserName() override;
  /// Raises NSObjectNotAvailableException when neither source knows one.
  std::string homeDirectory() override;
  /// A variable that does not hold an absolute path counts as unset.
  std::string configurationDirectory() override;
  /// A variable that does not hold the absolute path of a directory counts as unset.
  std::string temporaryDirectory() override;
  Liveness liveness(int processId) override;

 private:
  std::string _sharedTemporaryDirectory;
};

/// The full name in an account entry's comment field (GECOS): its text up to the first comma, each "&"
/// standing for the login name with a capital letter; the login name when that is empty.
std::string fullNameFromComment(std::string_view comment, std::string_view loginName);

}  // namespace corvane
