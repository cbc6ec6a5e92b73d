// Any format prints any arguments; text without "%" prints as it stands.

#include <cstddef>
#include <cstdint>

#include "CorvaneSyncClient/platform/foundation/values/Format.h"
#include "fuzz/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const Value value = Dictionary{{"k", Array{1, 2.5, "s"}}};
  const std::string printed = format(text, value, -7, 8U, 1.25, "chars", String(), Date{0.5}, &value);
  require(text.find('%') != std::string_view::npos || printed == text, "plain text stays");
  require(format("%@", text) == text, "an argument is no format");
  return 0;
}
