#pragma once

#include <unordered_map>
#include <unordered_set>

#include "CorvaneSyncClient/platform/loomer/api/LoomerSessionDriver.h"
#include "CorvaneSyncClient/platform/loomer/api/RecordSchema.h"
#include "CorvaneSyncClient/platform/loomer/session/Plan.h"

namespace corvane::loomer {

/// What the client answered to a plan's changes.
struct Delivery {
  /// Names the delivery, a fresh UUID; absent when there was nothing to deliver.
  String pushId;
  std::unordered_map<RecordId, String> localIds;  ///< of the additions that it took
  std::unordered_set<RecordId> refused;           ///< of which it refused or ignored the change
  /// What was not offered to it, because of what it refused. It is offered at the next session.
  std::unordered_set<RecordId> withheld;
};

/// Offers the plan's changes to the client, in their order. `identifiers` are the engine's of the records to
/// be added.
///
/// Where the client refuses something, what is a child of a record that it does not hold is withheld. Once it
/// has refused a change of a folder, the folder moves still to come are withheld too: a folder that stayed
/// where it is could close a cycle with one that moves.
///
/// Raises SessionCancelled when the client answers with an error, gives an addition an id that is in use, or
/// takes longer than it said it would; and whatever the data source raises.
Delivery deliver(LoomerSessionDriverDataSource& dataSource, const RecordSchema& schema, const Plan& plan,
                 const std::unordered_map<RecordId, String>& identifiers);

}  // namespace corvane::loomer
