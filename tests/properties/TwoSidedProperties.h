#pragma once

namespace corvane::loomer::test {

/// Random edits on both sides of a random tree have every property that small histories have, whatever the
/// size. Siblings that neither side moved keep their order, among other things, and what a side inserted at
/// one place stays together. Draws from RapidCheck; raises what does not hold.
void bothSidesArrive();

/// No moves, however many, count as deletions.
void movesNeverMeetTheGuard();

}  // namespace corvane::loomer::test
