#include "tests/properties/EditHistory.h"

#include <algorithm>

namespace corvane {

std::vector<std::string> ValueHistory::last() const {
  std::vector<std::string> last;
  for (const auto& [value, followers] : _followers) {
    if (followers == 0) last.push_back(value);
  }
  return last;
}

EntryHistory::EntryHistory(const EntryValues& first) {
  for (const std::string& each : first) _values.emplace_back(each);
}

bool EntryHistory::mustBeGone() const {
  return std::any_of(_deletions.begin(), _deletions.end(), [this](const Deletion& deletion) {
    for (std::size_t i = 0; i < _values.size(); ++i) {
      if (_values[i].last() != std::vector<std::string>{deletion.seen[i]}) return false;
    }
    return std::includes(deletion.seenInIt.begin(), deletion.seenInIt.end(), _entered.begin(),
                         _entered.end());
  });
}

std::string EntryHistory::complaint(const EntryValues& end) const {
  for (std::size_t i = 0; i < _values.size(); ++i) {
    const std::vector<std::string> last = _values[i].last();
    if (wasDeleted() && knows(i, end[i])) continue;
    if (std::find(last.begin(), last.end(), end[i]) != last.end()) continue;
    std::string complaint = "\"" + end[i] + "\" instead of";
    for (const std::string& each : last) complaint += " \"" + each + "\"";
    return complaint;
  }
  return "";
}

}  // namespace corvane
