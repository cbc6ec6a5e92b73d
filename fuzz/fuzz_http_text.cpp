// Whatever stands in a header or in an error's page, it is read or not, and what is printed of it is one
// line.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "CorvaneSyncClient/platform/pelto/place/HttpText.h"
#include "fuzz/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  pelto::dateFromHttp(std::string(text));
  pelto::isLoopbackHost(text);
  require(pelto::percentDecoded(pelto::percentEncoded(text)) == text, "what is encoded is decoded");
  require(pelto::percentDecoded(text).size() <= size, "nothing grows");
  const std::string line = pelto::firstLineOf(text);
  require(std::none_of(line.begin(), line.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7f'; }),
          "a message has no control characters");
  return 0;
}
