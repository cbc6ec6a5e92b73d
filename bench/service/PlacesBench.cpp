#include <utility>

#include "bench/service/Benches.h"
#include "bench/service/Edits.h"
#include "bench/service/Text.h"
#include "tests/fakes/TemporaryDirectory.h"
#include "tests/pelto/place/PlaceGround.h"

namespace corvane::servicebench {

namespace {

void printPlacesRow(const std::string& what, const Session& session) {
  std::vector<std::string> cells{what};
  for (std::string& cell : trafficCells(session.traffic)) cells.push_back(std::move(cell));
  printRow(cells);
}

// One account's first push, another computer's pull, and what follows.
void benchAccount(const Connect& connect, int records, bool isLast) {
  const TemporaryDirectory homes;
  const pelto::Sealer sealer = newSealer();
  std::vector<std::unique_ptr<Computer>> computers;
  for (const char* home : {"/first", "/second"})
    computers.push_back(std::make_unique<Computer>(sealer, connect, homes.path() + home));
  Random random(1);
  printPlacesRow("first push of " + numberText(records), computers[0]->syncAll(additions(records)));
  printPlacesRow("pull of the same", computers[1]->syncAll());
  if (isLast) {
    printPlacesRow("quiet session", computers[0]->sync());
    printPlacesRow("one edit", computers[0]->sync(newTitle(random)));
    printPlacesRow("taking it in", computers[1]->sync());
  }
  requireAgreement(computers);
}

}  // namespace

Connect waysTo(const std::string& place, ObjectCounts& counts) {
  pelto::PlaceGround& ground = pelto::groundOf(place);
  const bool isNear = place == "directory";
  return [&ground, &counts, isNear] {
    auto way = ground.place(after(kExchangeSeconds));
    return isNear ? counted(std::move(way), counts) : std::move(way);
  };
}

void benchPlaces(const std::vector<std::string>& places, const std::vector<int>& records) {
  for (const std::string& place : places) {
    ObjectCounts counts;
    const Connect connect = waysTo(place, counts);
    printHead({place, "requests", "up", "down"});
    for (const int count : records) benchAccount(connect, count, count == records.back());
  }
}

}  // namespace corvane::servicebench
