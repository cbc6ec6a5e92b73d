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
// A browser saves its whole file for one title. Where the client, its base and the truth said the same of
// everything at the end of the last session, and the truth is what it was then, a record that got other
// values where it stands concerns its siblings, whose order may hang on its title, and nothing else. So the
// merge is given the folders with such records, and those above, and answers what it would answer for the
// whole (`ChangedValuesMergeInTheirFolders`).

namespace corvane::loomer {

/// Whether client, base and truth say the same of everything, once what was settled is stored: the merge of a
/// client that gives the same again has nothing to do.
bool isAgreement(const Plan& plan, const Settlement& settlement);

/// The places at which the two differ; nothing where they are not of one length, or differ in more than a
/// few.
std::optional<std::vector<std::size_t>> differingPlaces(const std::vector<std::uint64_t>& before,
                                                        const std::vector<std::uint64_t>& now);

/// The sides of a merge for a client that agrees with the truth but for `changed`: the folders that these lie
/// in and those above, whole. Nothing where one of them got more than other values: it is new, or lies
/// elsewhere.
std::optional<Sides> sidesAround(std::int64_t client, const std::vector<ClientRecord>& changed,
                                 RecordTable& records, BaseTable& bases);

}  // namespace corvane::loomer
