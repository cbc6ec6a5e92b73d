#pragma once

#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "tools/loomerctl/Output.h"

namespace corvane::loomerctl {

/// One logged change for people: what it was, then a line for each attribute that differs.
void printChange(Output& out, loomer::RecordTable& records, const loomer::LoggedChange& change);
/// One value that lost a conflict.
void printLoss(Output& out, const loomer::Loss& loss);

}  // namespace corvane::loomerctl
