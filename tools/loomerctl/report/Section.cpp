#include "tools/loomerctl/report/Section.h"

#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomerctl {

void beginSection(const PageSink& sink, const char* id, const std::string& heading) {
  const std::string name = id;
  sink("<section id=\"" + name + "\" aria-labelledby=\"" + name + "-heading\">\n<h2 id=\"" + name +
       "-heading\">" + asHtml(heading) + "</h2>\n");
}

void endSection(const PageSink& sink) { sink("</section>\n"); }

void writeNothing(const PageSink& sink, const std::string& sentence) {
  sink("<p class=\"nothing\">" + sentenceHtml(sentence) + "</p>\n");
}

void writeRest(const PageSink& sink, std::size_t count) {
  if (count <= kMostListed) return;
  sink("<p class=\"rest\">" + asHtml(tr("%1 of %2 are listed.", kMostListed, count)) + "</p>\n");
}

// Roles say what blocks do not.
PageTable::PageTable(const PageSink& sink, const std::string& caption,
                     const std::vector<std::string>& headings)
    : _sink(sink) {
  _sink("<table role=\"table\"><caption>" + asHtml(caption) +
        "</caption>\n<thead role=\"rowgroup\"><tr role=\"row\">");
  for (const std::string& each : headings) {
    _headings.push_back(asHtml(each));
    _sink("<th role=\"columnheader\" scope=\"col\">" + _headings.back() + "</th>");
  }
  _sink("</tr></thead>\n<tbody role=\"rowgroup\">\n");
}

void PageTable::add(const std::vector<std::string>& cells) {
  _sink("<tr role=\"row\">");
  for (std::size_t i = 0; i < cells.size(); ++i) {
    _sink("<td role=\"cell\" data-heading=\"" + _headings[i] + "\">" + cells[i] + "</td>");
  }
  _sink("</tr>\n");
}

void PageTable::end() { _sink("</tbody></table>\n"); }

}  // namespace corvane::loomerctl
