#include "CorvaneSyncClient/platform/loomer/store/StoreCheck.h"

namespace corvane::loomer {

namespace {

constexpr const char* kCheck = "check it";

/// A damaged store may not even answer: that is a problem, too.
void addRows(Database& database, const char* sql, const std::string& problem,
             std::vector<std::string>& problems) {
  try {
    Statement query = database.query(sql, kCheck);
    query.open();
    while (query.next()) problems.push_back(problem + query.text(0).toString());
  } catch (const PlatformException& exception) {
    problems.push_back(exception.reason());
  }
}

struct Rule {
  const char* sql;
  const char* problem;
};

constexpr Rule kRules[] = {
    {"SELECT \"table\" || ' row ' || rowid FROM pragma_foreign_key_check", "a reference leads nowhere: "},
    {"SELECT r.id FROM records r LEFT JOIN records p ON p.id = r.parent"
     " WHERE r.id > 0 AND (p.id IS NULL OR p.entity <> 0)",
     "the parent is no live folder: record "},
    {"WITH RECURSIVE reached(id) AS (SELECT 0 UNION"
     " SELECT r.id FROM records r JOIN reached ON r.parent = reached.id)"
     " SELECT id FROM records WHERE id NOT IN (SELECT id FROM reached)",
     "cannot be reached from the root: record "},
    {"SELECT min(id) || ' and ' || max(id) FROM records WHERE id > 0 GROUP BY parent, place HAVING count(*) "
     "> 1",
     "two siblings share a place: records "},
    {"SELECT r.id FROM records r JOIN tombstones t ON t.id = r.id", "both live and deleted: record "},
    {"SELECT b.client || ' record ' || b.record FROM base b"
     " WHERE b.record NOT IN (SELECT id FROM records UNION ALL SELECT id FROM tombstones)",
     "a base holds a record that is unknown: client "},
    {"SELECT client || ' id ' || local_id FROM base WHERE local_id IS NOT NULL"
     " GROUP BY client, local_id HAVING count(*) > 1",
     "one local id stands for two records: client "},
};

}  // namespace

std::vector<std::string> checkStore(TruthStore& store) {
  std::vector<std::string> problems;
  addRows(store.database(), "PRAGMA integrity_check", "", problems);
  if (problems == std::vector<std::string>{"ok"}) problems.clear();
  for (const Rule& rule : kRules) addRows(store.database(), rule.sql, rule.problem, problems);
  return problems;
}

}  // namespace corvane::loomer
