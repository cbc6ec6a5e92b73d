#include "bench/service/Text.h"

#include <cstdio>

namespace corvane::servicebench {

namespace {

// Two digits that count, or all before the point.
std::string shortText(double number, const char* unit) {
  char text[64];
  std::snprintf(text, sizeof text, number < 9.95 ? "%.1f %s" : "%.0f %s", number, unit);
  return text;
}

}  // namespace

std::string numberText(std::int64_t number) {
  std::string text = std::to_string(number);
  for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, ",");
  return text;
}

std::string bytesText(std::int64_t bytes) {
  const auto number = static_cast<double>(bytes);
  return number < 999'500 ? shortText(number / 1e3, "kB") : shortText(number / 1e6, "MB");
}

std::string secondsText(double seconds) {
  return seconds < 0.9995 ? shortText(seconds * 1e3, "ms") : shortText(seconds, "s");
}

std::vector<std::string> trafficCells(const Traffic& traffic) {
  return {numberText(traffic.requests), bytesText(traffic.sent), bytesText(traffic.received)};
}

void printRow(const std::vector<std::string>& cells) {
  for (const std::string& cell : cells) std::printf("| %s ", cell.c_str());
  std::printf("|\n");
  std::fflush(stdout);
}

void printHead(const std::vector<std::string>& cells) {
  std::printf("\n");
  printRow(cells);
  for (std::size_t i = 0; i < cells.size(); ++i) std::printf(i == 0 ? "| --- " : "| ---: ");
  std::printf("|\n");
}

}  // namespace corvane::servicebench
