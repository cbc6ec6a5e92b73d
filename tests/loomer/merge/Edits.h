#pragma once

#include <rapidcheck.h>

#include <iosfwd>
#include <vector>

#include "tests/loomer/merge/History.h"

namespace corvane::loomer::test {

enum class EditKind : int {
  addBookmark,
  addFolder,
  addHidden,
  rename,
  readdress,
  toggle,
  move,
  reorder,
  erase,
  sync,
  syncKilled,
  refresh,
  replace,
};

/// One step of a history: who does what. The numbers choose among what there is when its turn comes.
struct Edit {
  EditKind kind = EditKind::sync;
  unsigned client = 0;
  unsigned entry = 0;
  unsigned folder = 0;
  unsigned index = 0;
  unsigned value = 0;
};

std::ostream& operator<<(std::ostream& out, const Edit& edit);

/// Edits of the given kinds; a kind listed twice comes twice as often.
rc::Gen<std::vector<Edit>> editsOf(std::vector<EditKind> kinds);

/// Titles that a history gives: few, so that they meet.
enum class Titles { few, unique };

/// Carries out one step. With unique titles, what is added or renamed is called by `serial`, which counts up,
/// and every bookmark keeps its first address.
void carryOut(History& history, const Edit& edit, Titles titles, unsigned& serial);

}  // namespace corvane::loomer::test
