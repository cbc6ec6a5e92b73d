#include "tests/properties/EditHistory.h"

#include <algorithm>

namespace corvane {

std::vector<std::string> ValueHistory::last() const {
  std::vector<std::string> last;
  for (const auto& [value, followers] : _followers) {
    if (followers == 0 || _back.contains(value)) last.push_back(value);
  }
  return last;
}

void ValueHistory::settle(const std::string& value) {
  for (auto& [known, followers] : _followers) followers = known == value ? 0 : std::max(followers, 1);
  _back.clear();
}

EntryHistory::EntryHistory(const EntryValues& first) {
  for (const std::string& each : first) _values.emplace_back(each);
}

void EntryHistory::revive(const EntryValues& values) {
  _mustLive = _deletions.size() == 1;  // of others, whoever undoes it need not know
  for (std::size_t i = 0; i < _values.size(); ++i) _values[i].comeBack(values[i]);
}

void EntryHistory::settle(const EntryValues* end) {
  _deletions.clear();
  _mustLive = false;
  EntryValues seen;
  for (std::size_t i = 0; i < _values.size(); ++i) {
    seen.push_back(end ? (*end)[i] : _values[i].last().front());
    _values[i].settle(seen.back());
  }
  if (!end) erase(seen, _entered);
}

bool EntryHistory::mustBeGone() const {
  const auto hasComeBack = [](const ValueHistory& each) { return each.hasComeBack(); };
  if (std::any_of(_values.begin(), _values.end(), hasComeBack)) return false;
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
