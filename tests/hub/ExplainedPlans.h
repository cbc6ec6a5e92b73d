#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/pelto/PostgresServer.h"

namespace corvane {

/// One look at a table in a plan.
struct TableScan {
  std::string node;        ///< "Index Scan", "Seq Scan" and so on
  std::string table;       ///< the partition's name where there are partitions
  std::string condition;   ///< by which entries were looked up; empty when all were read
  std::int64_t rows = 0;   ///< that were read, those thrown away again included
  bool isExecuted = true;  ///< whether the server came to that part of the plan
};

/// What the server did for one statement, those inside of functions among them.
struct ExplainedPlan {
  std::string statement;
  std::string text;  ///< the whole entry of the log
  std::vector<TableScan> scans;
};

/// Has a server tell in its log how it carries out every statement in the database "hub", for connections
/// made from now on.
void explainEverything(PostgresServer& server);

/// Collects the plans of what is done while it lives.
class ExplainedPlans {
 public:
  explicit ExplainedPlans(const PostgresServer& server);
  /// In the order in which the statements ended.
  std::vector<ExplainedPlan> all() const;

 private:
  std::string _log;
  std::streamoff _begin;
};

}  // namespace corvane
