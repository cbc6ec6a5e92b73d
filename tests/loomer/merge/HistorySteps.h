#pragma once

#include "tests/kit/Steps.h"
#include "tests/loomer/merge/History.h"

namespace corvane::loomer::test {

/// Titles that a history gives: few, so that they meet.
enum class Titles { few, unique };

/// Carries out one step. With unique titles, what is added or renamed is called by `serial`, which counts up,
/// and every bookmark keeps its first address.
void carryOut(History& history, const kit::Step& step, Titles titles, unsigned& serial);

}  // namespace corvane::loomer::test
