#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "tests/kit/TestSize.h"
#include "tests/loomer/merge/CheckTimes.h"
#include "tests/properties/ComputersProperty.h"
#include "tests/properties/FileProperties.h"
#include "tests/properties/RollbackProperty.h"
#include "tests/properties/TwoSidedProperties.h"

// The properties that take both sides of a history, a real engine or real files to check. RapidCheck prints
// its seed; RC_PARAMS="seed=…" replays one. CORVANE_PROPERTIES=N runs N times as many histories.

namespace corvane {
namespace {

int times(int count) {
  const char* const factor = std::getenv("CORVANE_PROPERTIES");
  return factor ? count * std::max(1, std::atoi(factor)) : count;
}

TEST(TwoSides, BothArriveAndKeepTheirOrder) {
  loomer::test::checkTimes(times(sized(1000, 150)), 40, loomer::test::bothSidesArrive);
}

TEST(TwoSides, MovesNeverMeetTheGuard) {
  loomer::test::checkTimes(times(sized(300, 50)), 60, loomer::test::movesNeverMeetTheGuard);
}

TEST(Refusals, LeaveTheRecordWithTheOthers) {
  loomer::test::checkTimes(times(sized(40, 8)), 40, refusedRecordsStay);
}

TEST(Files, ConvergeWhateverHappens) { loomer::test::checkTimes(times(sized(25, 5)), 40, filesConverge); }

TEST(Files, AreMergedTheSameOverAnAgreement) {
  loomer::test::checkTimes(times(sized(40, 8)), 40, agreementsChangeNothing);
}

/// Over each kind of service.
class SeveralComputers : public testing::TestWithParam<MemoryHub::Kind> {};

INSTANTIATE_TEST_SUITE_P(Over, SeveralComputers,
                         testing::Values(MemoryHub::Kind::table, MemoryHub::Kind::chain),
                         [](const auto& each) {
                           return each.param == MemoryHub::Kind::table ? "Table" : "Chain";
                         });

TEST_P(SeveralComputers, ConvergeWhateverHappensToTheService) {
  loomer::test::checkTimes(times(sized(25, 5)), 40, [] { computersConverge(GetParam()); });
}

TEST_P(SeveralComputers, KeepEveryEditWhateverTheServiceLoses) {
  loomer::test::checkTimes(times(sized(60, 10)), 40, [] { editsSurviveRollbacks(GetParam()); });
}

TEST(Files, AreRestoredByAnUndo) { loomer::test::checkTimes(times(sized(20, 4)), 30, undoRestoresEveryFile); }

}  // namespace
}  // namespace corvane
