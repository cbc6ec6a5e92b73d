#include "tools/loomerctl/Table.h"

#include <algorithm>
#include <string_view>

#include "tools/loomerctl/Text.h"

namespace corvane::loomerctl {

namespace {
constexpr std::size_t kRowsThatDecide = 1000;
constexpr const char* kGap = "  ";
constexpr std::size_t kNarrowest = 8;
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
  narrow();
  std::vector<std::string> headings;
  for (const Column& column : _columns) headings.push_back(column.heading);
  writeRow(headings, Style::heading);
  for (const auto& row : _held) writeRow(row, Style::plain);
  _held.clear();
}

// Takes from the widest of the columns that may be cut, for as long as the rows do not fit.
void Table::narrow() {
  if (!_out.terminal()) return;
  std::size_t total = (_widths.size() - 1) * std::string_view(kGap).size();
  for (const std::size_t each : _widths) total += each;
  for (; total > _out.columns(); --total) {
    std::size_t* widest = nullptr;
    for (std::size_t i = 0; i < _widths.size(); ++i)
      if (!_columns[i].right && (!widest || _widths[i] > *widest)) widest = &_widths[i];
    if (!widest || *widest <= kNarrowest) return;
    --*widest;
  }
}

void Table::writeRow(const std::vector<std::string>& row, Style style) {
  std::string line;
  for (std::size_t i = 0; i < row.size(); ++i) {
    const std::string cell = _out.terminal() && !_columns[i].right ? cut(row[i], _widths[i]) : row[i];
    const std::size_t width = displayWidth(cell);
    const std::string padding(_widths[i] > width ? _widths[i] - width : 0, ' ');
    if (i > 0) line += kGap;
    line += _columns[i].right ? padding + cell : cell + padding;
  }
  line.erase(line.find_last_not_of(' ') + 1);
  _out.write(line, style);
  _out.write("\n");
}

}  // namespace corvane::loomerctl
