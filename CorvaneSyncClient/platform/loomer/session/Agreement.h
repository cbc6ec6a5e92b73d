#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/session/Plan.h"
#include "CorvaneSyncClient/platform/loomer/session/Settlement.h"
#include "CorvaneSyncClient/platform/loomer/store/BaseTable.h"
#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"

// A client that agrees with the truth is merged in parts
//
// A browser saves its whole file for one title, and another browser's title comes alone. Where the client,
// its base and the truth said the same of everything at the end of a session, a record that got other values
// where it stands since, on either side, concerns its siblings, whose order may hang on its title, and
// nothing else. So the merge is given the folders with such records, and those above, and answers what it
// would answer for the whole (`ChangedValuesMergeInTheirFolders`).

namespace corvane::loomer {

/// Whether client, base and truth say the same of everything, once what was settled is stored: the merge of a
/// client that gives the same again has nothing to do.
bool isAgreement(const Plan& plan, const Settlement& settlement);

/// The places at which the two differ; nothing where they are not of one length, or differ in more than a
/// few.
std::optional<std::vector<std::size_t>> differingPlaces(const std::vector<std::uint64_t>& before,
                                                        const std::vector<std::uint64_t>& now);

/// What the truth says otherwise than it did when a client agreed with it at that revision; nothing where
/// that is more than a few, or something is gone.
std::optional<std::vector<TruthRecord>> newsSince(std::int64_t revision, RecordTable& records);

/// The sides of a merge for a client that agrees with the truth but for what it `changed` and the truth's
/// `news`: the folders that these lie in and those above, whole. Nothing where one of them got more than
/// other values, or another place among its siblings: it is new, or lies elsewhere.
std::optional<Sides> sidesAround(std::int64_t client, const std::vector<ClientRecord>& changed,
                                 const std::vector<TruthRecord>& news, RecordTable& records,
                                 BaseTable& bases);

/// Whether a plan over such sides delivers these and nothing else. Else everything has to be merged: special
/// folders are told where they stand among all that is in the root.
bool deliversAlone(const Plan& plan, const std::vector<TruthRecord>& news);

}  // namespace corvane::loomer
