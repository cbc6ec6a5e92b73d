#include "CorvaneSyncClient/platform/pelto/chain/Survey.h"

#include <algorithm>
#include <functional>
#include <optional>

namespace corvane::pelto::chain {

namespace {

struct Listed {
  Slot slot;
  std::string name;
};

// Looks at one listing.
class Surveyor {
 public:
  Surveyor(const std::vector<std::string>& listed, const Readings& readings) : _readings(readings) {
    for (const std::string& name : listed) {
      if (auto slot = slotNamed(name)) _byNumber[slot->number].push_back({std::move(*slot), name});
    }
    for (auto& [number, commits] : _byNumber) {
      std::sort(commits.begin(), commits.end(),
                [](const Listed& a, const Listed& b) { return a.name < b.name; });
    }
  }

  Survey survey() {
    for (const auto& [number, commits] : _byNumber) {
      for (const Listed& each : commits) {
        auto path = completePathTo(each);
        if (!_unread.empty()) return {std::move(_unread), {}};
        if (path) return {{}, std::move(*path)};
      }
    }
    return {};
  }

 private:
  // Absent when what is listed there is damaged, and when it is still to be read.
  const Link* linkAt(const Listed& listed) {
    const auto found = _readings.find(listed.name);
    if (found == _readings.end()) {
      _unread.push_back(listed.name);
      return nullptr;
    }
    return found->second.state == Found::State::good ? &found->second.link : nullptr;
  }

  // The good commit of that slot, unless an earlier attempt at it is good.
  const Link* counting(const Listed& listed) {
    for (const Listed& each : _byNumber.at(listed.slot.number)) {
      const bool isEarlier = each.slot.after == listed.slot.after && each.slot.attempt < listed.slot.attempt;
      if (isEarlier && (linkAt(each) || !_unread.empty())) return nullptr;
    }
    return linkAt(listed);
  }

  const Link* before(const Link& link) {
    const auto commits = _byNumber.find(link.number - 1);
    if (commits == _byNumber.end()) return nullptr;
    for (const Listed& each : commits->second) {
      const Link* const candidate = counting(each);
      if (!_unread.empty()) return nullptr;
      if (candidate && candidate->hash == link.previous) return candidate;
    }
    return nullptr;
  }

  std::optional<std::vector<Link>> completePathTo(const Listed& head) {
    std::vector<Link> path;
    for (const Link* link = counting(head); link; link = before(*link)) {
      if (link->isLast) return std::vector<Link>{*link};
      path.push_back(*link);
      const bool isFirst = link->number == 1 && link->previous == beginning();
      if (isFirst || (link->isCheckpoint && link->isWhole)) {
        std::reverse(path.begin(), path.end());
        return path;
      }
    }
    if (!path.empty()) readAhead(path.back());
    return std::nullopt;
  }

  // Nothing in a chain is known before its commits are read one after the other. So where one of them is to
  // be read, all down to the checkpoint before are.
  void readAhead(const Link& link) {
    if (_unread.empty()) return;
    const std::int64_t checkpoint = link.isCheckpoint ? link.before : link.number - link.tail;
    for (const auto& [number, commits] : _byNumber) {
      if (number >= link.number || number < checkpoint) continue;
      for (const Listed& each : commits) {
        if (!_readings.contains(each.name)) _unread.push_back(each.name);
      }
    }
    std::sort(_unread.begin(), _unread.end());
    _unread.erase(std::unique(_unread.begin(), _unread.end()), _unread.end());
  }

  std::map<std::int64_t, std::vector<Listed>, std::greater<>> _byNumber;
  const Readings& _readings;
  std::vector<std::string> _unread;
};

}  // namespace

Survey survey(const std::vector<std::string>& listed, const Readings& readings) {
  return Surveyor(listed, readings).survey();
}

}  // namespace corvane::pelto::chain
