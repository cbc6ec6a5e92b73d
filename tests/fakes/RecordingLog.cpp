#include "tests/fakes/RecordingLog.h"

#include <algorithm>

namespace corvane {

std::string RecordingLog::difference() const {
  std::string text;
  for (std::size_t i = 0; i < std::max(messages.size(), expectedMessages.size()); ++i) {
    const bool came = i < messages.size();
    const bool expected = i < expectedMessages.size();
    if (came && expected && messages[i] == expectedMessages[i]) continue;
    if (came) text += "system log, not declared: " + messages[i] + "\n";
    if (expected) text += "system log, declared only: " + expectedMessages[i] + "\n";
  }
  return text;
}

}  // namespace corvane
