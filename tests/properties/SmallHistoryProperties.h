#pragma once

#include <map>
#include <string>
#include <vector>

#include "tests/loomer/merge/ClientSimulation.h"

namespace corvane::loomer::test {

/// What one tree says of a record.
struct Fact {
  RecordId parent = kRoot;
  std::size_t index = 0;  ///< among its siblings
  std::string title;
  std::string url;
  Entity entity = Entity::bookmark;
  friend bool operator==(const Fact&, const Fact&) = default;
};
using Facts = std::map<RecordId, Fact>;

/// One history: the tree both started from, what each side made of it, and what came of it. Both sides'
/// edits are counted against `origin`; B synced after A.
struct SmallHistory {
  const Facts& origin;
  const Facts& a;
  const Facts& b;
  const Facts& end;
};

/// Raises std::logic_error, with the reason, unless the history has every property that it must have: nothing
/// lost that nobody deleted, nothing doubled or invented, every attribute and parent by the rule, and the
/// order of siblings.
void requireProperties(const SmallHistory& history);

}  // namespace corvane::loomer::test
