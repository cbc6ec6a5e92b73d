// A URL that was accepted is its own URL, is plain ASCII without white space, and escaping leaves nothing to
// escape.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "CorvaneSyncClient/platform/foundation/values/TypedUrl.h"
#include "fuzz/Require.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvane;
  const std::string typed(reinterpret_cast<const char*>(data), size);
  const std::string escaped = percentEscaped(typed);
  require(percentEscaped(escaped) == escaped, "escaped text needs no escaping");
  for (const std::string& text : {typed, escaped}) {
    const auto url = urlWithUserTypedString(text);
    if (!url) continue;
    const std::string_view accepted = url->text.view();
    require(std::all_of(accepted.begin(), accepted.end(), [](char c) { return c > ' ' && c < '\x7f'; }),
            "a URL is visible ASCII");
    const auto again = urlWithUserTypedString(accepted);
    require(again && again->text == url->text, "a URL is its own URL");
  }
  return 0;
}
