#include "CorvaneSyncClient/platform/loomer/merge/SiblingNumbers.h"

#include <algorithm>
#include <limits>

#include "CorvaneSyncClient/platform/foundation/text/CaseFolding.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/loomer/merge/Increasing.h"

// Which numbers can stay? Let s(i) count the pairs of neighbours up to child i that need different numbers.
// The wanted numbers y fit exactly if y(i) - s(i) never falls, so the most numbers that can stay are a
// longest non-decreasing subsequence of y(i) - s(i), and what lies between two of them always fits.

namespace corvane::loomer {
namespace {

using Number = std::int64_t;
constexpr Number kGreatest = std::numeric_limits<std::int32_t>::max();

bool hasMeaning(Number number) { return number == LoomerPositionSpecial || number == LoomerPositionByTitle; }

Number above(Number number) {
  do ++number;
  while (hasMeaning(number));
  return number;
}

Number below(Number number) {
  do --number;
  while (hasMeaning(number));
  return number;
}

bool sortsBefore(const PlacedChild& a, const PlacedChild& b) {
  return a.hasTitle && b.hasTitle && compareCaseInsensitive(a.title, b.title) < 0;
}

bool standsBefore(const PlacedChild& a, const PlacedChild& b) {
  return a.listed && b.listed && a.number == b.number && a.rank < b.rank;
}

class Numbering {
 public:
  Numbering(std::vector<PlacedChild>& children, std::int32_t least) : _children(children), _least(least) {}

  void run() {
    countSteps();
    chooseKept();
    for (std::size_t begin = 0; begin < _children.size();) {
      std::size_t end = begin;
      while (end < _children.size() && !_kept[end]) ++end;
      if (end > begin) numberRun(begin, end);
      begin = end + 1;
    }
    for (std::size_t i = 0; i < _children.size(); ++i) {
      const auto number = static_cast<std::int32_t>(_numbers[i]);
      if (!_children[i].listed || number != _children[i].number) _children[i].delivered = true;
      _children[i].number = number;
    }
  }

 private:
  void countSteps() {
    _steps.assign(_children.size(), 0);
    for (std::size_t i = 1; i < _children.size(); ++i) {
      const bool mayShare =
          sortsBefore(_children[i - 1], _children[i]) || standsBefore(_children[i - 1], _children[i]);
      _steps[i] = _steps[i - 1] + (mayShare ? 0 : 1);
    }
  }

  void chooseKept() {
    std::vector<Number> levels;
    std::vector<std::uint64_t> weights;
    std::vector<std::size_t> candidates;
    for (std::size_t i = 0; i < _children.size(); ++i) {
      const Number level = _children[i].number - _steps[i];
      if (!_children[i].listed || level < _least || level > kGreatest - _steps.back()) continue;
      levels.push_back(level);
      // One that is delivered anyway costs nothing more when it is renumbered.
      weights.push_back(_children[i].delivered ? 1 : _children.size() + 1);
      candidates.push_back(i);
    }
    const std::vector<bool> chosen = heaviestRising(levels, Rise::level, weights);
    _kept.assign(_children.size(), false);
    _numbers.assign(_children.size(), 0);
    for (std::size_t i = 0; i < candidates.size(); ++i) {
      _kept[candidates[i]] = chosen[i];
      _numbers[candidates[i]] = _children[candidates[i]].number;
    }
  }

  // Numbers the children [begin, end), between two that keep theirs; with different numbers if there is
  // room.
  void numberRun(std::size_t begin, std::size_t end) {
    if (begin == 0 && end == _children.size()) {
      for (std::size_t i = begin; i < end; ++i) _numbers[i] = static_cast<Number>(i);
      return;
    }
    if (begin == 0) {
      for (std::size_t i = end; i-- > begin;) _numbers[i] = below(_numbers[i + 1]);
      if (_numbers[begin] >= _least) return;
      for (std::size_t i = end; i-- > begin;) _numbers[i] = _numbers[i + 1] - stepTo(i + 1);
      return;
    }
    const Number limit = end == _children.size() ? kGreatest + 1 : _numbers[end];
    for (std::size_t i = begin; i < end; ++i) _numbers[i] = above(_numbers[i - 1]);
    if (_numbers[end - 1] < limit) return;
    for (std::size_t i = begin; i < end; ++i) _numbers[i] = _numbers[i - 1] + stepTo(i);
  }

  Number stepTo(std::size_t i) const { return _steps[i] - _steps[i - 1]; }

  std::vector<PlacedChild>& _children;
  Number _least;
  std::vector<Number> _steps;
  std::vector<bool> _kept;
  std::vector<Number> _numbers;
};

bool isListedInOrder(const std::vector<PlacedChild>& children) {
  for (std::size_t i = 0; i < children.size(); ++i) {
    if (!children[i].listed || (i > 0 && children[i - 1].rank >= children[i].rank)) return false;
  }
  return true;
}

}  // namespace

bool listsInOrder(const std::vector<PlacedChild>& children, std::int32_t least) {
  for (std::size_t i = 0; i < children.size(); ++i) {
    const PlacedChild& child = children[i];
    if (child.delivered && (child.number < least || hasMeaning(child.number))) return false;
    if (i == 0) continue;
    const PlacedChild& before = children[i - 1];
    if (before.number < child.number) continue;
    const bool untouched = !before.delivered && !child.delivered && standsBefore(before, child);
    if (before.number > child.number || (!untouched && !sortsBefore(before, child))) return false;
  }
  return true;
}

void numberChildren(std::vector<PlacedChild>& children, std::int32_t least) {
  if (isListedInOrder(children) && listsInOrder(children, least)) return;
  Numbering(children, least).run();
  if (listsInOrder(children, least)) return;
  for (std::size_t i = 0; i < children.size(); ++i) {
    children[i].number = static_cast<std::int32_t>(i);
    children[i].delivered = true;
  }
}

}  // namespace corvane::loomer
