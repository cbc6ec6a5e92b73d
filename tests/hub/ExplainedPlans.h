#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/pelto/PostgresServer.h"

namespace corvane {

/// One access to a table in a plan.
struct TableScan {
  std::string node;        ///< "Index Scan", "Seq Scan" and so on
  std::string table;       ///< the partition's name if the table is partitioned
  std::string condition;   ///< the index condition; empty when everything was read
  std::int64_t rows = 0;   ///< read, including those that a filter removed
  bool isExecuted = true;  ///< whether the server executed this part of the plan
};

/// The plan of one statement; statements inside functions have plans of their own.
struct ExplainedPlan {
  std::string statement;
  std::string text;  ///< the whole entry of the log
  std::vector<TableScan> scans;
};

/// Makes a server log the plan of every statement in the database "hub", for connections made from now on.
void explainEverything(PostgresServer& server);

/// Collects the plans of the statements that run during its lifetime.
class ExplainedPlans {
 public:
  explicit ExplainedPlans(const PostgresServer& server);
  /// The plans in the order in which the statements ended.
  std::vector<ExplainedPlan> all() const;

 private:
  std::string _log;
  std::streamoff _begin;
};

}  // namespace corvane
