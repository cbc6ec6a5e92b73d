#pragma once

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/foundation/text/String.h"
#include "CorvaneSyncClient/platform/system/SystemLog.h"
#include "bench/hubload/Edits.h"
#include "bench/hubload/Sample.h"

namespace corvane::hubload {

/// Counts the messages of the system log, and shows the first of them: a session that goes well has none.
class Complaints : public SystemLog {
 public:
  void write(Kind kind, std::string_view message) override;
  int count() const { return _count; }

 private:
  int _count = 0;
};

/// A computer of one account: an engine's store in a home of its own. Between two sessions nothing of it is
/// open, as between two runs of the tool.
class Computer {
 public:
  /// `complaints` must be the current platform's log and outlive this object.
  Computer(int account, int number, std::string url, const std::string& home, const Complaints& complaints);

  /// Has bookmarks switched on for this computer at the service.
  void switchOn();
  /// One session, in which the engine's truth is edited as `edit` says, where it says something, between the
  /// two exchanges with the service.
  Sample sync(const loomer::TruthPlanner& edit = {});
  Digest digest() const;
  int account() const { return _account; }
  int number() const { return _number; }

 private:
  int _account;
  int _number;
  std::string _url;
  String _identifier;
  std::string _store;
  const Complaints& _complaints;
};

}  // namespace corvane::hubload
