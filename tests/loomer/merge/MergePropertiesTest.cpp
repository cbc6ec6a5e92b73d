#include "tests/loomer/merge/CheckTimes.h"
#include "tests/loomer/merge/MergeProperties.h"

// The properties of the engine, driven by random histories of several clients in memory. RapidCheck prints
// its seed; set RC_PARAMS="seed=…" to replay one.

namespace corvane::loomer::test {
namespace {

TEST(MergeProperties, WhenEditsStopAllClientsHoldOneTreeAfterTwoRounds) {
  checkTimes(3000, 60, clientsConverge);
}

TEST(MergeProperties, ChangesOfOneClientArriveAsTheyWere) { checkTimes(1500, 40, changesArrive); }

TEST(MergeProperties, NothingVanishesAndNothingAppearsTwice) { checkTimes(2000, 60, nothingVanishes); }

TEST(MergeProperties, AKilledSessionLeavesNoTrace) { checkTimes(1500, 40, killedSessionsLeaveNoTrace); }

}  // namespace
}  // namespace corvane::loomer::test
