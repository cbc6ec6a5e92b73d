#pragma once

#include <string>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/system/LogListener.h"

namespace corvane {

/// Notes beside the engine's store how one sync run of a client ended, for whoever asks later: what a run
/// that fails says of it goes to the system log, where few look and which not every system keeps. Made before
/// the run begins; listens to the log until it is gone.
class RunReport {
 public:
  explicit RunReport(String clientId) : _clientId(std::move(clientId)) {}

  /// The run ended without an exception. Why it failed, if it did, is what the log says last.
  void ended(bool succeeded);
  /// The exception that is being handled ended the run. Raises nothing.
  void raised() noexcept;
  /// The run failed of this, or could not begin.
  void note(const Message& cause) const;

 private:
  String _clientId;
  LogListener _log{LogListener::Passing::on};
};

}  // namespace corvane
