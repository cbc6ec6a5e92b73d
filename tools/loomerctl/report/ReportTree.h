#pragma once

#include <cstddef>
#include <string>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "tools/loomerctl/report/Markup.h"

namespace corvane::loomerctl {

/// One folder or bookmark of the agreed tree.
struct ReportEntry {
  loomer::TruthRecord record;
  std::size_t depth = 0;  ///< 0 directly in the root
  std::size_t held = 0;   ///< what stands directly in a folder
};

/// All the agreed bookmarks, folders before their contents, in their order.
class ReportTree {
 public:
  /// Reads them; of a damaged store whatever can be reached from the root.
  explicit ReportTree(loomer::TruthStore& store);

  const std::vector<ReportEntry>& entries() const { return _entries; }
  /// The titles of the folders above the entry, as a page shows them; empty for one directly in the root.
  std::string pathHtml(const ReportEntry& entry) const;
  /// The whole tree as nested lists, in which folders fold. Each entry begins a line, and the ends of a
  /// folder's list have one of their own.
  void write(const PageSink& sink) const;

 private:
  std::vector<ReportEntry> _entries;
  std::unordered_map<loomer::RecordId, std::size_t> _folders;  // where each is in _entries
};

}  // namespace corvane::loomerctl
