#pragma once

#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

// For a client whose ids are the records' own, the same in every store (see
// `LoomerSessionDriverDataSource::identifiersAreGlobal`). Bases are by ascending record.

namespace corvane::loomer {

/// The base with the records that the client pushed under identifiers which the base does not know and the
/// truth does, deleted records included: not held before, but known by those ids. Nothing when there are
/// none.
std::optional<std::vector<BaseRecord>> baseMetByIdentifier(RecordTable& records,
                                                           const std::vector<BaseRecord>& base,
                                                           const std::vector<ClientRecord>& pushed);

/// Gives each record that has a new local id that one for its identifier, in the open transaction. Another
/// record that bore it gets a fresh one.
void adoptIdentifiers(RecordTable& records, const std::vector<BaseRecord>& before,
                      const std::vector<BaseRecord>& after);

}  // namespace corvane::loomer
