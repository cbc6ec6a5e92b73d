// Whatever a commit holds, a roster or a change of the key is written as it was read.

#include <cstddef>
#include <cstdint>

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/pelto/seal/GenerationChange.h"
#include "CorvaneSyncClient/platform/pelto/seal/Roster.h"
#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static const FakePlatform platform;
  Value value;
  try {
    value = readPropertyList({reinterpret_cast<const char*>(data), size});
  } catch (const PropertyListException&) {
    return 0;
  }
  try {
    const pelto::Roster roster = pelto::rosterFrom(value);
    require(pelto::rosterFrom(pelto::valueOf(roster)) == roster, "a roster reads back equal");
  } catch (const pelto::SealedFormException&) {
  }
  try {
    const pelto::GenerationChange change = pelto::generationChangeFrom(value);
    require(pelto::generationChangeFrom(pelto::valueOf(change)) == change, "a change reads back equal");
  } catch (const pelto::SealedFormException&) {
  }
  return 0;
}
