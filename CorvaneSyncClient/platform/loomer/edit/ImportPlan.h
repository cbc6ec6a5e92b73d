#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/merge/Merge.h"

namespace corvane::loomer {

/// One folder or bookmark that is to be imported.
struct ImportedNode {
  /// The parent of what is directly in the root.
  static constexpr std::uint32_t kRoot = 0xFFFFFFFF;

  bool folder = false;
  std::string title;
  std::string url;               ///< bookmarks only
  std::uint32_t parent = kRoot;  ///< a folder that stands before it in the list
  bool toolbar = false;          ///< marked as the folder that the browser's toolbar shows
  bool tabGroup = false;         ///< marked as a folder that opens as a group of tabs
};

/// What an import adds.
struct ImportPlan {
  std::vector<TruthChange> changes;  ///< additions only
  std::vector<std::uint32_t> added;  ///< of each, which node of the import it is
  std::size_t folders = 0;           ///< new ones
  std::size_t bookmarks = 0;         ///< new ones
  std::size_t known = 0;             ///< folders and bookmarks of the import that were there already
};

/// How imported folders and bookmarks join the truth: nothing that is there changes, and what is missing is
/// added after its siblings in their order.
///
/// A folder is there already when its parent has one of the same title; a bookmark when its folder has one of
/// the same title and address. If none has exactly that title, one that differs in white space alone
/// counts: programs collapse it in what they export. Matching is one to one: an import with two equal
/// bookmarks in one folder leaves two there. The toolbar's folder is the special one. Pure; O(n) in the
/// number of records and nodes.
ImportPlan planImport(const std::vector<TruthRecord>& truth, const std::vector<ImportedNode>& nodes,
                      RecordId nextRecord, std::int64_t revision);

}  // namespace corvane::loomer
