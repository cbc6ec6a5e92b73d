#include "tests/loomer/merge/Laws.h"

#include "tests/loomer/merge/Properties.h"

// The laws of the engine, driven by random histories of several clients in memory. RapidCheck prints its
// seed; set RC_PARAMS="seed=…" to replay one.

namespace corvane::loomer::test {
namespace {

TEST(Laws, WhenEditsStopAllClientsHoldOneTreeAfterTwoRounds) { checkTimes(3000, 60, clientsConverge); }

TEST(Laws, ChangesOfOneClientArriveAsTheyWere) { checkTimes(1500, 40, changesArrive); }

TEST(Laws, NothingVanishesAndNothingAppearsTwice) { checkTimes(2000, 60, nothingVanishes); }

TEST(Laws, AKilledSessionLeavesNoTrace) { checkTimes(1500, 40, killedSessionsLeaveNoTrace); }

}  // namespace
}  // namespace corvane::loomer::test
