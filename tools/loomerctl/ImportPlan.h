#pragma once

#include <cstdint>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"
#include "tools/loomerctl/BookmarksHtml.h"

namespace corvane::loomerctl {

/// What an import adds.
struct ImportPlan {
  std::vector<loomer::TruthChange> changes;  ///< additions only
  std::size_t folders = 0;                   ///< new ones
  std::size_t bookmarks = 0;                 ///< new ones
  std::size_t known = 0;                     ///< folders and bookmarks of the file that were there already
};

/// How a file's folders and bookmarks join the truth: nothing that is there changes, and what is missing is
/// added after its siblings in the file's order.
///
/// A folder is there already when its parent has one of the same title; a bookmark when its folder has one of
/// the same title and address. If none has exactly that title, one that differs in white space alone
/// counts: programs collapse it in what they export. Matching is one to one: a file with two equal bookmarks
/// in one folder leaves two there. The file's toolbar folder is the special one. Pure; O(n) in the number of
/// records and nodes.
ImportPlan planImport(const std::vector<loomer::TruthRecord>& truth, const std::vector<HtmlNode>& nodes,
                      loomer::RecordId nextRecord, std::int64_t revision);

}  // namespace corvane::loomerctl
