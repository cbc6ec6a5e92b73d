#pragma once

#include <unordered_set>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"

namespace corvane::loomer {

/// What `baseOfEarlierState` finds.
struct EarlierBase {
  std::vector<BaseRecord> records;  ///< by ascending record
  /// What the client held since, lacks now, and was not deleted there.
  std::vector<RecordId> lost;
  /// Local ids of what the client held at that state, holds still, and is not known to have held since: the
  /// truth, which had grown out of that state, had deleted it by the time that it first heard of the client,
  /// or has forgotten the deletion.
  std::unordered_set<String> forgotten;
  /// What the client holds in a folder that is forgotten, but did not move there.
  std::unordered_set<RecordId> unmoved;
  /// What the client had in another place since and lost, or holds as it was earlier. It is written to the
  /// client again, even where it was changed back to what it says, so that others see that it was changed.
  std::unordered_set<RecordId> outdated;
};

/// The base over which a client is merged that went back to an earlier state: what it held when it and the
/// truth parted, as far as its present values tell whose they are.
///
/// The client lost what was given to it since that state, and has been edited by others since. The truth
/// knows the lost part, and others may have given it to the client again. So whatever the client calls old is
/// something from which the truth has moved on: it counts as the base's, and the truth's value stands. What
/// it calls news is an edit that others made on it since, and stands. Of a value whose age it cannot tell,
/// that one is old which it holds unchanged since that state or is known to have held since; one that was
/// changed since and back again cannot be told from it. A record that the client did not hold to the end and
/// all of whose values are news was given to it anew: it is no part of the base, and lives again. A record
/// that the client lacks was deleted there if it had it at that state or reports that it had it since, unless
/// it was held to the end and that deletion is an old one; else it was lost, is no part of the base, and is
/// given to the client once more.
///
/// `stored` is the client's base as it is stored, `held` what it held at that state and since, by record,
/// oldest first, `pushed` what it holds now. Pure; O(n log n).
EarlierBase baseOfEarlierState(const std::vector<BaseRecord>& stored, const std::vector<HeldVersion>& held,
                               const std::vector<ClientRecord>& pushed, const EarlierState& earlier);

}  // namespace corvane::loomer
