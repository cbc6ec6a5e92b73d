#pragma once

#include <string>
#include <vector>

#include "tools/loomerctl/Output.h"

namespace corvane::loomerctl {

/// Aligned columns under headings. The first rows decide how wide the columns are; later ones that are wider
/// push their line out, so that a table of any length needs no more memory than those first rows. On a
/// terminal that is too narrow for them, cells that are not aligned to the right are cut.
class Table {
 public:
  /// How a column looks.
  struct Column {
    std::string heading;
    bool right = false;  ///< aligned to the right, as numbers are
  };

  /// Writes to `out`, which must outlive this object.
  Table(Output& out, std::vector<Column> columns);
  /// One printable cell for each column.
  void add(std::vector<std::string> row);
  /// Writes what is left. Nothing at all is written for a table without rows.
  void finish();

 private:
  void writeHeld();
  void narrow();
  void writeRow(const std::vector<std::string>& row, Style style);

  Output& _out;
  std::vector<Column> _columns;
  std::vector<std::size_t> _widths;  ///< in terminal columns
  std::vector<std::vector<std::string>> _held;
  bool _started = false;
};

}  // namespace corvane::loomerctl
