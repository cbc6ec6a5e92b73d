#include "tools/loomerctl/Table.h"

#include <algorithm>

#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

namespace {
constexpr std::size_t kRowsThatDecide = 1000;
constexpr const char* kGap = "  ";
}  // namespace

Table::Table(Output& out, std::vector<Column> columns) : _out(out), _columns(std::move(columns)) {
  for (const Column& column : _columns) _widths.push_back(displayWidth(column.heading));
}

void Table::add(std::vector<std::string> row) {
  if (_started) return writeRow(row, Style::plain);
  for (std::size_t i = 0; i < _widths.size(); ++i) _widths[i] = std::max(_widths[i], displayWidth(row[i]));
  _held.push_back(std::move(row));
  if (_held.size() == kRowsThatDecide) writeHeld();
}

void Table::finish() {
  if (!_started && !_held.empty()) writeHeld();
}

void Table::writeHeld() {
  _started = true;
  std::vector<std::string> headings;
  for (const Column& column : _columns) headings.push_back(column.heading);
  writeRow(headings, Style::heading);
  for (const auto& row : _held) writeRow(row, Style::plain);
  _held.clear();
}

void Table::writeRow(const std::vector<std::string>& row, Style style) {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    const std::size_t width = displayWidth(row[i]);
    const std::string padding(_widths[i] > width ? _widths[i] - width : 0, ' ');
    if (i > 0) line += kGap;
    line += _columns[i].right ? padding + row[i] : row[i] + padding;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  _out.write(line, style);
  _out.write("\n");
}

}  // namespace corvane::loomerctl
