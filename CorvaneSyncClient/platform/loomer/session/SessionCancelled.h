#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"

namespace corvane::loomer {

/// The reason why a session cannot go on, for people: what, why, what to do. Cancels the session.
class SessionCancelled : public PlatformException {
 public:
  explicit SessionCancelled(Message reason)
      : PlatformException("LoomerSessionCancelledException", std::move(reason)) {}
};

/// The guard refused the session's plan.
class SessionRefused : public SessionCancelled {
 public:
  /// `deletions` are the records that the plan would delete.
  SessionRefused(Message reason, Refusal refusal, std::vector<RecordId> deletions)
      : SessionCancelled(std::move(reason)), _refusal(std::move(refusal)), _deletions(std::move(deletions)) {}

  /// What is stored of it, to be looked at and approved.
  const Refusal& refusal() const { return _refusal; }
  /// The records that the plan would delete.
  const std::vector<RecordId>& deletions() const { return _deletions; }

 private:
  Refusal _refusal;
  std::vector<RecordId> _deletions;
};

/// What a data source gave as its reason, or that it gave none.
inline Message reasonGiven(const String& error) {
  return error ? Message(error.toString()) : Message("it gave no reason");
}

/// How a message about the client ends.
inline Message nothingChanged() { return Message("Nothing was changed; remove the cause and sync again."); }

/// Of a time that a data source waits.
inline std::uint64_t wholeSeconds(double seconds) {
  return static_cast<std::uint64_t>(std::llround(std::max(seconds, 0.0)));
}

}  // namespace corvane::loomer
