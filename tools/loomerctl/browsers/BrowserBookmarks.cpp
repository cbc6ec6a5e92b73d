#include "tools/loomerctl/browsers/BrowserBookmarks.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"
#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"

namespace corvane::loomerctl {

std::string withoutZeros(std::string_view text) {
  std::string whole;
  whole.reserve(text.size());
  for (const char c : text) {
    if (c == '\0') {
      appendUtf8(whole, kReplacementCharacter);
    } else {
      whole += c;
    }
  }
  return whole;
}

void addTags(LeftOut& leftOut, std::uint32_t node, std::string_view list) {
  while (!list.empty()) {
    const std::string_view tag = list.substr(0, list.find(','));
    std::string shown = whiteSpaceCollapsed(tag);
    if (!shown.empty()) leftOut.add(Extra::tag, node, std::move(shown));
    list.remove_prefix(std::min(tag.size() + 1, list.size()));
  }
}

}  // namespace corvane::loomerctl
