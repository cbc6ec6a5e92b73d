// A database and its write-ahead log, behind the size of the database (32 bits, the lowest byte first), are
// refused or read as what Firefox writes.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/RequireTree.h"
#include "tests/fakes/FakePlatform.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/browsers/DatabaseSnapshot.h"
#include "tools/loomerctl/browsers/PlacesDatabase.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static FakePlatform platform;  // refusals are said in its language
  constexpr std::size_t kDatabaseAt = 4;
  if (size < kDatabaseAt) return 0;
  std::size_t declared = 0;
  for (std::size_t i = 0; i < kDatabaseAt; ++i) declared |= std::size_t{data[i]} << (8 * i);
  const std::string_view bytes(reinterpret_cast<const char*>(data) + kDatabaseAt, size - kDatabaseAt);
  const std::size_t split = std::min(declared, bytes.size());
  try {
    const std::string database =
        loomerctl::withWriteAheadLog(std::string(bytes.substr(0, split)), bytes.substr(split), "file");
    requireTree(loomerctl::treeOfPlaces(loomerctl::readPlaces(database, "file")));
  } catch (const loomerctl::Refused& refused) {
    require(refused.reason().starts_with("file "), "a refusal names the file");
  }
  return 0;
}
