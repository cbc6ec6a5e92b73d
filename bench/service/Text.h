#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "bench/service/Traffic.h"

namespace corvane::servicebench {

/// "12,345".
std::string numberText(std::int64_t number);
/// "0.9 kB", "12 kB", "1.2 MB": thousands and millions.
std::string bytesText(std::int64_t bytes);
/// "12 ms", "1.2 s".
std::string secondsText(double seconds);

/// The cells "requests", "up" and "down".
std::vector<std::string> trafficCells(const Traffic& traffic);

/// Prints a row of a Markdown table, at once.
void printRow(const std::vector<std::string>& cells);
/// Prints a blank line, and the table's head: the first column to the left, the others to the right.
void printHead(const std::vector<std::string>& cells);

}  // namespace corvane::servicebench
