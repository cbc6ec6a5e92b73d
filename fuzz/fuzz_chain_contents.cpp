// Whatever an object of a chain holds once it is opened, it is read or refused with a reason, and what is
// read is written back as the same.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/chain/Contents.h"
#include "CorvaneSyncClient/platform/pelto/chain/Link.h"
#include "fuzz/Require.h"

namespace corvane::pelto::chain {
namespace {

template <typename Read, typename Write>
void readAndWrite(std::string_view bytes, const Read& read, const Write& write) {
  try {
    const std::string written = write(read(bytes));
    require(write(read(written)) == written, "what was read is written and read as the same");
  } catch (const ContentsException& exception) {
    require(!exception.reason().empty(), "a refusal has a reason");
  } catch (const NewerContentsException&) {
    // Refused as well.
  }
}

}  // namespace
}  // namespace corvane::pelto::chain

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane::pelto::chain;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  readAndWrite(bytes, readCommit, writeCommit);
  readAndWrite(bytes, readSegment, writeSegment);
  readAndWrite(bytes, readHistory, writeHistory);
  if (const auto slot = slotNamed(bytes)) corvane::require(nameOf(*slot) == bytes, "a slot has one name");
  return 0;
}
