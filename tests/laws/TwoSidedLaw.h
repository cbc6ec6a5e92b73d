#pragma once

namespace corvane::loomer::test {

/// One history of two clients of any size: random edits on both sides of a random tree end as the small
/// histories' laws demand. Draws from RapidCheck; raises what does not hold. Among these laws: siblings that
/// neither side moved keep their order, and what a side inserted at one place stays together.
void bothSidesArrive();

/// No moves, however many, count as deletions.
void movesNeverMeetTheGuard();

}  // namespace corvane::loomer::test
