#pragma once

#include <string>
#include <vector>

#include "bench/hubload/Sample.h"
#include "bench/hubload/Service.h"

namespace corvane::hubload {

/// Prints the heads of the columns that `printPhase` fills.
void printHead();

/// Prints what a phase cost: a line for each kind of session that occurred, and what the server did for one.
/// Without `effort` nothing is said of that.
void printPhase(const std::string& name, const std::vector<Sample>& samples, double seconds,
                const Effort* effort);

}  // namespace corvane::hubload
