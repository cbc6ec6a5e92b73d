// Comparing without case is an order over any bytes.

#include <cstddef>
#include <cstdint>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "fuzz/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto sign = [](int number) { return (number > 0) - (number < 0); };
  const std::string_view a = text.substr(0, size / 3);
  const std::string_view b = text.substr(a.size(), size / 3);
  const std::string_view c = text.substr(a.size() + b.size());
  const int ab = sign(compareCaseInsensitive(a, b));
  const int bc = sign(compareCaseInsensitive(b, c));
  require(compareCaseInsensitive(a, a) == 0, "a text equals itself");
  require(sign(compareCaseInsensitive(b, a)) == -ab, "the order is the same from both sides");
  if (ab <= 0 && bc <= 0) require(compareCaseInsensitive(a, c) <= 0, "the order is transitive");
  if (isValidUtf8(a) && isValidUtf8(b)) {
    require(isValidUtf8(text.substr(0, a.size() + b.size())), "two valid texts make a valid one");
  }
  return 0;
}
