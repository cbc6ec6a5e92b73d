#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/session/Delivery.h"
#include "CorvaneSyncClient/platform/loomer/session/Plan.h"

namespace corvane::loomer {

/// What a session leaves behind: what the store is to say besides the plan's changes of the truth.
struct Settlement {
  std::vector<BaseRecord> base;  ///< what the client will hold, by ascending record
  ClientState client;
  /// The session in the log; nothing when it changed nothing on either side.
  std::optional<SessionEntry> logEntry;
  /// For the next session, if this one is killed; nothing when there is nothing to be known then.
  std::optional<Journal> journal;
};

/// Makes of a plan and the client's answers what is to be stored. Pure: no input or output. `planned` is the
/// plan's own `result.base`, of the size of all records, which need not be there twice.
///
/// What the client did not take is never half true in the base: an addition is noted as not held, and
/// anything else as the client held it before; with the revision that it refused, which is not offered again,
/// or without one where it was withheld.
Settlement settle(const Opening& opening, const Plan& plan, std::vector<BaseRecord> planned,
                  const Delivery& delivery, Date now);

}  // namespace corvane::loomer
