#include "tools/loomerctl/report/Tidying.h"

#include <algorithm>

namespace corvane::loomerctl {

using namespace loomer;

namespace {

std::string_view addressOf(const ReportEntry* entry) { return entry->record.content.url.view(); }

// The runs of one address.
std::vector<std::vector<const ReportEntry*>> duplicatesAmong(std::vector<const ReportEntry*> bookmarks) {
  std::stable_sort(bookmarks.begin(), bookmarks.end(),
                   [](const ReportEntry* a, const ReportEntry* b) { return addressOf(a) < addressOf(b); });
  std::vector<std::vector<const ReportEntry*>> duplicates;
  for (auto begin = bookmarks.begin(); begin != bookmarks.end();) {
    const auto end = std::find_if(begin, bookmarks.end(), [&](const ReportEntry* each) {
      return addressOf(each) != addressOf(*begin);
    });
    if (end - begin > 1) duplicates.emplace_back(begin, end);
    begin = end;
  }
  std::stable_sort(duplicates.begin(), duplicates.end(),
                   [](const auto& a, const auto& b) { return a.size() > b.size(); });
  return duplicates;
}

}  // namespace

Tidying tidyingOf(const ReportTree& tree) {
  Tidying tidying;
  std::vector<const ReportEntry*> bookmarks;
  for (const ReportEntry& each : tree.entries()) {
    if (each.record.entity == Entity::folder) {
      if (each.held == 0 && !each.record.content.special) tidying.emptyFolders.push_back(&each);
    } else if (each.record.content.url.empty()) {
      tidying.withoutAddress.push_back(&each);
    } else {
      bookmarks.push_back(&each);
    }
  }
  tidying.duplicates = duplicatesAmong(std::move(bookmarks));
  return tidying;
}

}  // namespace corvane::loomerctl
