#include "tests/hub/ExplainedPlans.h"

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

namespace corvane {

namespace {

// The lines of the log's entries that hold plans: the first line of an entry begins with the time, the
// others with a tab.
std::vector<std::vector<std::string>> planEntries(std::istream& log) {
  std::vector<std::vector<std::string>> entries;
  bool isPlan = false;
  std::string line;
  while (std::getline(log, line)) {
    if (!line.starts_with('\t')) {
      isPlan = line.find("LOG:  duration:") != std::string::npos && line.ends_with("plan:");
      if (isPlan) entries.emplace_back();
    } else if (isPlan) {
      entries.back().push_back(line.substr(1));
    }
  }
  return entries;
}

void readScan(const std::string& line, std::vector<TableScan>& scans) {
  static const std::regex kScan(
      R"((?:^|-> +)((?:Index Only|Index|Seq|Bitmap Heap|Tid|Sample) Scan)(?: Backward)?(?: using \w+)? on (\w+).* )"
      R"(\((?:actual rows=(\d+) loops=(\d+)|never executed)\))");
  static const std::regex kCondition(R"((?:Index|Recheck|TID) Cond: (.*))");
  static const std::regex kRemoved(R"(Rows Removed by (?:Filter|Index Recheck): (\d+))");
  std::smatch match;
  if (std::regex_search(line, match, kScan)) {
    const bool isExecuted = match[3].matched;
    const std::int64_t rows = isExecuted ? std::stoll(match[3]) * std::stoll(match[4]) : 0;
    scans.push_back({match[1], match[2], "", rows, isExecuted});
  } else if (!scans.empty() && std::regex_search(line, match, kCondition)) {
    if (scans.back().condition.empty()) scans.back().condition = match[1];
  } else if (!scans.empty() && std::regex_search(line, match, kRemoved)) {
    scans.back().rows += std::stoll(match[1]);
  }
}

ExplainedPlan planIn(const std::vector<std::string>& lines) {
  ExplainedPlan plan;
  bool isStatement = true;
  for (const std::string& line : lines) {
    plan.text += line + '\n';
    isStatement = isStatement && line.find("(cost=") == std::string::npos;
    if (isStatement) {
      plan.statement += line + '\n';
    } else {
      readScan(line, plan.scans);
    }
  }
  return plan;
}

}  // namespace

void explainEverything(PostgresServer& server) {
  for (const char* setting : {"session_preload_libraries = 'auto_explain'",
                              "auto_explain.log_min_duration = 0", "auto_explain.log_nested_statements = on",
                              "auto_explain.log_analyze = on", "auto_explain.log_timing = off"})
    server.administer(std::string("ALTER DATABASE hub SET ") + setting);
}

ExplainedPlans::ExplainedPlans(const PostgresServer& server)
    : _log(server.directory() + "/log"),
      _begin(static_cast<std::streamoff>(std::filesystem::file_size(_log))) {}

std::vector<ExplainedPlan> ExplainedPlans::all() const {
  std::ifstream log(_log);
  log.seekg(_begin);
  std::vector<ExplainedPlan> plans;
  for (const auto& entry : planEntries(log)) plans.push_back(planIn(entry));
  return plans;
}

}  // namespace corvane
