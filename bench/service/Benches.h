#pragma once

#include <memory>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/pelto/place/Place.h"
#include "bench/service/Computer.h"
#include "bench/service/CountedPlace.h"

namespace corvane::servicebench {

// The measurements. Each prints its tables, and raises what stops it: a session that fails, computers that do
// not agree.

/// What sessions cost at each place: requests and bytes.
void benchPlaces(const std::vector<std::string>& places, const std::vector<int>& records);
/// What a session costs in accounts of different sizes, at a corvane-hub.
void benchRecords(const std::vector<int>& counts);
/// What a session costs among that many accounts, at one corvane-hub and in one directory.
void benchAccounts(const std::vector<int>& counts);
/// A family's edits, by the clock of a year; that many records in the beginning.
void benchYear(int days, int records);

/// No exchange of the measurements lasts longer.
inline constexpr double kExchangeSeconds = 600;

/// Ways to a place from the tests, whose traffic counts whether or not it has a network. `counts` must
/// outlive them.
Connect waysTo(const std::string& place, ObjectCounts& counts);

}  // namespace corvane::servicebench
