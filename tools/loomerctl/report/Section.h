#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/loomerctl/report/Markup.h"

namespace corvane::loomerctl {

/// What a section lists at most: a page is read by a person.
inline constexpr std::size_t kMostListed = 100;

/// Begins the section of this id, with its heading. Texts here and below are plain text.
void beginSection(const PageSink& sink, const char* id, const std::string& heading);
void endSection(const PageSink& sink);
/// A sentence in the place of a list that would be empty.
void writeNothing(const PageSink& sink, const std::string& sentence);
/// Behind the first `kMostListed` of `count`: says that there are more.
void writeRest(const PageSink& sink, std::size_t count);

/// A table whose rows a narrow page shows as blocks, each cell behind the heading of its column.
class PageTable {
 public:
  /// Begins it. `sink` must outlive this object.
  PageTable(const PageSink& sink, const std::string& caption, const std::vector<std::string>& headings);
  /// HTML, for each column.
  void add(const std::vector<std::string>& cells);
  void end();

 private:
  const PageSink& _sink;
  std::vector<std::string> _headings;  // escaped
};

}  // namespace corvane::loomerctl
