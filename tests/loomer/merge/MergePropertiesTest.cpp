#include "tests/kit/TestSize.h"
#include "tests/loomer/merge/CheckTimes.h"
#include "tests/loomer/merge/MergeProperties.h"

// The properties of the engine, driven by random histories of several clients in memory. RapidCheck prints
// its seed; set RC_PARAMS="seed=…" to replay one.

namespace corvane::loomer::test {
namespace {

TEST(MergeProperties, WhenEditsStopAllClientsHoldOneTreeAfterTwoRounds) {
  checkTimes(sized(3000, 60), 60, clientsConverge);
}

TEST(MergeProperties, ChangesOfOneClientArriveAsTheyWere) { checkTimes(sized(1500, 40), 40, changesArrive); }

TEST(MergeProperties, NothingVanishesAndNothingAppearsTwice) {
  checkTimes(sized(2000, 40), 60, nothingVanishes);
}

TEST(MergeProperties, ChangedValuesMergeInTheirFolders) {
  checkTimes(sized(2000, 40), 60, changedValuesMergeInTheirFolders);
}

TEST(MergeProperties, AKilledSessionLeavesNoTrace) {
  checkTimes(sized(1500, 60), 40, killedSessionsLeaveNoTrace);
}

}  // namespace
}  // namespace corvane::loomer::test
