#include "tests/kit/Steps.h"

#include <array>
#include <ostream>

namespace corvane::kit {
namespace {

constexpr std::array kNames = {
    "addBookmark",    "addFolder",  "addHidden",     "rename",        "readdress",      "toggle",
    "move",           "reorder",    "erase",         "undo",          "sync",           "syncKilled",
    "syncWhile",      "syncCutOff", "syncCrossed",   "syncCancelled", "refresh",        "replace",
    "settle",         "restart",    "join",          "leave",         "dropTombstones", "emptyService",
    "restoreService", "losePushes", "switchService", "fillAccount",   "emptyAccount"};
static_assert(kNames.size() == static_cast<std::size_t>(StepKind::emptyAccount) + 1);

}  // namespace

std::ostream& operator<<(std::ostream& out, const Step& step) {
  return out << "{StepKind::" << kNames.at(static_cast<std::size_t>(step.kind)) << ", " << step.client << ", "
             << step.entry << ", " << step.folder << ", " << step.index << ", " << step.value << "}";
}

rc::Gen<std::vector<Step>> stepsOf(const Weights& weights, unsigned numbers) {
  std::vector<StepKind> kinds;
  for (const auto& [weight, kind] : weights) kinds.insert(kinds.end(), weight, kind);
  const auto number = rc::gen::inRange(0U, numbers);
  return rc::gen::container<std::vector<Step>>(
      rc::gen::construct<Step>(rc::gen::elementOf(std::move(kinds)), number, number, number, number, number));
}

}  // namespace corvane::kit
