// `report`.

#include "CorvaneSyncClient/platform/system/Messages.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"
#include "tools/loomerctl/CommandList.h"
#include "tools/loomerctl/Input.h"
#include "tools/loomerctl/OutputFile.h"
#include "tools/loomerctl/Text.h"
#include "tools/loomerctl/UserStore.h"
#include "tools/loomerctl/report/ReportFrame.h"
#include "tools/loomerctl/report/ReportSections.h"

namespace corvane::loomerctl {

namespace {

struct ReportSection {
  const char* id;
  TextKey name;  // in the list of sections
  WriteSection write;
};

constexpr ReportSection kReportSections[] = {
    {"overview", TextKey("Overview"), writeOverview},
    {"clients", TextKey("Clients"), writeClientSection},
    {"sessions", TextKey("Sessions"), writeSessionSection},
    {"changes", TextKey("Last changes"), writeChangeSection},
    {"conflicts", TextKey("Conflicts"), writeConflictSection},
    {"tidying", TextKey("Worth tidying"), writeTidyingSection},
    {"bookmarks", TextKey("Bookmarks"), writeBookmarkSection},
};

void writeReport(const ReportFacts& facts, const PageSink& sink) {
  sink(pageBegin(tr("Bookmarks")));
  sink("<a class=\"skip\" href=\"#bookmarks\">" + asHtml(tr("Skip to the bookmarks")) + "</a>\n<header><h1>" +
       asHtml(tr("Bookmarks")) + "</h1>\n<p>" + asHtml(tr("As of %1", minuteText(facts.now))) +
       "</p></header>\n");
  sink("<nav aria-label=\"" + asHtml(tr("Sections")) + "\"><ul>\n");
  for (const ReportSection& each : kReportSections) {
    sink(std::string("<li><a href=\"#") + each.id + "\">" + asHtml(tr(each.name)) + "</a></li>\n");
  }
  sink("</ul></nav>\n<main>\n");
  for (const ReportSection& each : kReportSections) each.write(facts, sink);
  sink("</main>\n");
  sink(pageEnd());
}

}  // namespace

Status writeReportFile(Invocation& run) {
  const auto store = openStoreToRead();
  const ReportFacts facts = reportFacts(*store);
  const std::string& path = run.options.argument;
  if (path == kStandardStream) {
    writeReport(facts, [&](std::string_view piece) { run.out.write(piece); });
    return statusFine;
  }
  std::string page;
  writeReport(facts, [&](std::string_view piece) { page += piece; });
  const PrivateUmask umask;
  writeOutputFile(path, page);
  run.out.write(counted(facts.sync.records.bookmarks,
                        "Wrote a report on %1 bookmark to %2. Any browser shows it.",
                        "Wrote a report on %1 bookmarks to %2. Any browser shows it.", printable(path)) +
                '\n');
  return statusFine;
}

}  // namespace corvane::loomerctl
