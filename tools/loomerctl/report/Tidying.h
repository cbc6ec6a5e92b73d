#pragma once

#include <vector>

#include "tools/loomerctl/report/ReportTree.h"

namespace corvane::loomerctl {

/// What of the tree is worth a look by whoever tidies it. Pointers are into the tree.
struct Tidying {
  /// The bookmarks of each address that more than one has, in the tree's order; the most first.
  std::vector<std::vector<const ReportEntry*>> duplicates;
  std::vector<const ReportEntry*> emptyFolders;  ///< but for the bookmarks bar and menu
  std::vector<const ReportEntry*> withoutAddress;
};

/// Finds it, in O(n·log n).
Tidying tidyingOf(const ReportTree& tree);

}  // namespace corvane::loomerctl
