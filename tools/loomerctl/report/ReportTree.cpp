#include "tools/loomerctl/report/ReportTree.h"

#include <algorithm>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/TreeWalk.h"

namespace corvane::loomerctl {

using namespace loomer;

namespace {

// Browsers drop what lies deeper than some 200 elements, three of which make a level. Folders below stand in
// the list of the deepest one, each entry with its depth.
constexpr std::size_t kDeepestList = 40;
// A tree of at most so many entries is shown with its first level unfolded.
constexpr std::size_t kUnfolded = 300;

std::string depthHtml(const ReportEntry& entry) {
  return entry.depth > kDeepestList ? "<small>[" + std::to_string(entry.depth) + "]</small> " : "";
}

std::string folderNameHtml(const ReportEntry& entry) {
  return "<b>" + asHtml(entry.record.content.name.view()) + "</b> <small>" + grouped(entry.held) + "</small>";
}

}  // namespace

ReportTree::ReportTree(TruthStore& store) {
  RecordTable records(store);
  TreeWalk walk(records, kRoot);
  while (const TruthRecord* record = walk.next()) {
    const auto parent = _folders.find(record->parent);
    if (parent != _folders.end()) ++_entries[parent->second].held;
    if (record->entity == Entity::folder) _folders.emplace(record->id, _entries.size());
    _entries.push_back({*record, walk.depth(), 0});
  }
}

std::string ReportTree::pathHtml(const ReportEntry& entry) const {
  std::string path;
  const ReportEntry* at = &entry;
  for (std::size_t level = entry.depth; level > 0; --level) {
    at = &_entries[_folders.at(at->record.parent)];
    path = "<bdi>" + asHtml(at->record.content.name.view()) + "</bdi>" + (path.empty() ? "" : " › " + path);
  }
  return path;
}

void ReportTree::write(const PageSink& sink) const {
  const char* const unfolded = _entries.size() <= kUnfolded ? " open" : "";
  std::size_t open = 0;
  const auto close = [&](std::size_t level) {
    for (; open > level; --open) sink("</ul></details></li>\n");
  };
  sink("<ul class=\"tree\">\n");
  for (const ReportEntry& each : _entries) {
    close(std::min(each.depth, kDeepestList));
    if (each.record.entity == Entity::bookmark) {
      sink("<li>" + depthHtml(each) + bookmarkHtml(each.record.content) + "</li>\n");
    } else if (each.depth >= kDeepestList) {
      sink("<li>" + depthHtml(each) + folderNameHtml(each) + "</li>\n");
    } else {
      sink(std::string("<li><details") + (each.depth == 0 ? unfolded : "") + "><summary>" +
           folderNameHtml(each) + "</summary><ul>\n");
      ++open;
    }
  }
  close(0);
  sink("</ul>\n");
}

}  // namespace corvane::loomerctl
