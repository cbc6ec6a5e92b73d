#pragma once

#include <string>

#include "CorvaneSyncClient/platform/loomer/session/Plan.h"

namespace corvane::loomer {

/// Raises SessionRefused when the plan must be approved and exactly this plan was not.
void guard(const Opening& opening, const Plan& plan);

/// Whether the plan deletes so much, only because the client lacks it, that somebody must approve it: more
/// than half of the live records and more than twenty, or all of five or more.
bool mustBeApproved(const MergeResult& plan);

/// What the plan would do to the truth, as 16 hexadecimal digits (FNV-1a, 64 bits: it tells plans apart and
/// protects from mistakes, not from an adversary). Revision numbers do not count: the same plan later is the
/// same plan.
std::string planDigest(const MergeResult& plan);

}  // namespace corvane::loomer
