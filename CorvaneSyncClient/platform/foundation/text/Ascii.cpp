#include "CorvaneSyncClient/platform/foundation/text/Ascii.h"

namespace corvane {

std::string whiteSpaceCollapsed(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!isHtmlSpace(text[at])) {
      result += text[at];
    } else if (!result.empty() && result.back() != ' ') {
      result += ' ';
    }
  }
  if (result.ends_with(' ')) result.pop_back();
  return result;
}

}  // namespace corvane
