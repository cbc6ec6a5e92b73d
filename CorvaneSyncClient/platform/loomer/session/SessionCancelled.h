#pragma once

#include <string>
#include <utility>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/loomer/store/RefusalTable.h"

namespace corvane::loomer {

/// The reason why a session cannot go on, for people: what, why, what to do. Cancels the session.
class SessionCancelled : public PlatformException {
 public:
  explicit SessionCancelled(std::string reason)
      : PlatformException("LoomerSessionCancelledException", std::move(reason)) {}
};

/// The guard refused the session's plan.
class SessionRefused : public SessionCancelled {
 public:
  /// `deletions` are the records that the plan would delete.
  SessionRefused(std::string reason, Refusal refusal, std::vector<RecordId> deletions)
      : SessionCancelled(std::move(reason)), _refusal(std::move(refusal)), _deletions(std::move(deletions)) {}

  /// What is stored of it, to be looked at and approved.
  const Refusal& refusal() const { return _refusal; }
  /// The records that the plan would delete.
  const std::vector<RecordId>& deletions() const { return _deletions; }

 private:
  Refusal _refusal;
  std::vector<RecordId> _deletions;
};

}  // namespace corvane::loomer
