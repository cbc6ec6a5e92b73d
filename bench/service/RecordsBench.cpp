#include "bench/service/Benches.h"
#include "bench/service/Edits.h"
#include "bench/service/Text.h"
#include "tests/fakes/TemporaryDirectory.h"

namespace corvane::servicebench {

namespace {

void printRecordsRow(int records, const std::string& what, const Session& session) {
  std::vector<std::string> cells{numberText(records), what};
  for (std::string& cell : trafficCells(session.traffic)) cells.push_back(std::move(cell));
  cells.push_back(secondsText(session.processorSeconds));
  cells.push_back(secondsText(session.serviceSeconds));
  printRow(cells);
}

}  // namespace

void benchRecords(const std::vector<int>& counts) {
  ObjectCounts objects;
  const Connect connect = waysTo("hub", objects);
  printHead({"records", "session", "requests", "up", "down", "processor", "of the time, at the service"});
  for (const int count : counts) {
    const TemporaryDirectory homes;
    const pelto::Sealer sealer = newSealer();
    Computer first(sealer, connect, homes / "first"), second(sealer, connect, homes / "second");
    Random random(1);
    printRecordsRow(count, "first push", first.syncAll(additions(count)));
    printRecordsRow(count, "pull", second.syncAll());
    printRecordsRow(count, "quiet", first.sync());
    printRecordsRow(count, "one edit", first.sync(newTitle(random)));
    printRecordsRow(count, "taking it in", second.sync());
  }
}

}  // namespace corvane::servicebench
