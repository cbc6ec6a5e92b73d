// What is compressed comes out as long as it says, or is refused.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/Require.h"
#include "tests/fakes/FakePlatform.h"
#include "tools/loomerctl/Invocation.h"
#include "tools/loomerctl/browsers/MozLz4.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  static FakePlatform platform;  // refusals are said in its language
  constexpr std::size_t kSizeAt = 8;
  // The reader is given nothing that does not begin as such a file.
  if (size < kSizeAt) return 0;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  try {
    const std::string contents = loomerctl::mozLz4Contents(bytes, "file");
    std::size_t declared = 0;
    for (std::size_t i = 0; i < 4; ++i) declared |= std::size_t{data[kSizeAt + i]} << (8 * i);
    require(contents.size() == declared, "there is as much in it as it says");
  } catch (const loomerctl::Refused& refused) {
    require(refused.reason().starts_with("file is damaged: "), "a refusal names the file");
  }
  return 0;
}
