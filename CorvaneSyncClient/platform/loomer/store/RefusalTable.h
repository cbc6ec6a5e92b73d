#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/values/Date.h"
#include "CorvaneSyncClient/platform/loomer/records/Records.h"
#include "CorvaneSyncClient/platform/loomer/store/TruthStore.h"

namespace corvane::loomer {

/// A client's plan that the guard refused. It stands until the client finishes a session.
struct Refusal {
  std::string digest;         ///< of exactly that plan
  std::size_t deletions = 0;  ///< records that it would delete
  std::size_t live = 0;       ///< of so many
  Date refused;
  std::optional<Date> approved;
};

/// The plans that the guard refused, one for each client at most.
class RefusalTable {
 public:
  explicit RefusalTable(TruthStore& store) : _store(store) {}

  /// Nothing when no plan of the client stands refused.
  std::optional<Refusal> find(std::int64_t client);
  /// The records that the refused plan would delete, ascending.
  std::vector<RecordId> deletions(std::int64_t client);
  /// Notes a refusal, and the records that the plan would delete, in place of an older one; an approval of
  /// the same plan stays.
  void enter(std::int64_t client, const Refusal& refusal, const std::vector<RecordId>& deletions);
  /// Lets the refused plan pass once. False when nothing was refused.
  bool approve(std::int64_t client, Date now);
  /// Nothing is refused to the client any more.
  void remove(std::int64_t client);

 private:
  TruthStore& _store;
};

}  // namespace corvane::loomer
