#include <algorithm>

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/report/ReportSections.h"
#include "tools/loomerctl/report/Section.h"
#include "tools/loomerctl/report/Tidying.h"

namespace corvane::loomerctl {

namespace {

constexpr std::size_t kShownOfDuplicate = 300;  // characters of an address

std::string placeHtml(const ReportTree& tree, const ReportEntry& entry) {
  const std::string path = tree.pathHtml(entry);
  return "<small>" + (path.empty() ? asHtml(tr("not in a folder")) : path) + "</small>";
}

void writeDuplicates(const ReportFacts& facts, const PageSink& sink, const Tidying& tidying) {
  const auto& duplicates = tidying.duplicates;
  sink("<h3>" + asHtml(tr("One address, several bookmarks")) + "</h3>\n");
  if (duplicates.empty()) return writeNothing(sink, tr("Each address has one bookmark."));
  sink("<ul class=\"duplicates\">\n");
  for (std::size_t i = 0; i < std::min(duplicates.size(), kMostListed); ++i) {
    const auto& same = duplicates[i];
    sink("<li><code>" + asShortHtml(same[0]->record.content.url.view(), kShownOfDuplicate) +
         "</code> <small>" + grouped(same.size()) + "</small>\n<ul>\n");
    for (std::size_t at = 0; at < std::min(same.size(), kMostListed); ++at) {
      sink("<li>" + bookmarkHtml(same[at]->record.content) + ' ' + placeHtml(facts.tree, *same[at]) +
           "</li>\n");
    }
    sink("</ul>\n");
    writeRest(sink, same.size());
    sink("</li>\n");
  }
  sink("</ul>\n");
  writeRest(sink, duplicates.size());
}

void writeEntries(const ReportFacts& facts, const PageSink& sink,
                  const std::vector<const ReportEntry*>& entries) {
  sink("<ul>\n");
  for (std::size_t i = 0; i < std::min(entries.size(), kMostListed); ++i) {
    sink("<li><b>" + asHtml(entries[i]->record.content.name.view()) + "</b> " +
         placeHtml(facts.tree, *entries[i]) + "</li>\n");
  }
  sink("</ul>\n");
  writeRest(sink, entries.size());
}

}  // namespace

void writeTidyingSection(const ReportFacts& facts, const PageSink& sink) {
  const Tidying tidying = tidyingOf(facts.tree);
  beginSection(sink, "tidying", tr("Worth tidying"));
  writeDuplicates(facts, sink, tidying);
  sink("<h3>" + asHtml(tr("Empty folders")) + "</h3>\n");
  if (tidying.emptyFolders.empty()) {
    writeNothing(sink, tr("No folder is empty."));
  } else {
    writeEntries(facts, sink, tidying.emptyFolders);
  }
  if (!tidying.withoutAddress.empty()) {
    sink("<h3>" + asHtml(tr("Bookmarks without an address")) + "</h3>\n");
    writeEntries(facts, sink, tidying.withoutAddress);
  }
  endSection(sink);
}

}  // namespace corvane::loomerctl
