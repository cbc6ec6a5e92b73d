#include "tests/loomer/engine/QueryPlans.h"

#include <sqlite3.h>

#include <memory>
#include <set>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

namespace corvane {

namespace {

std::set<std::string> seen, unexplained;

// Called as each statement starts. SQLite allows no other use of the connection meanwhile: it is explained
// later.
int noteStatement(unsigned, void*, void* statement, void*) {
  const char* sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
  if (sql && seen.insert(sql).second) unexplained.insert(sql);
  return 0;
}

int watch(sqlite3* connection, char**, const void*) {
  return sqlite3_trace_v2(connection, SQLITE_TRACE_STMT, noteStatement, nullptr);
}

// SQLite calls an extension with more than the type of its registration tells.
const int registered = sqlite3_auto_extension(reinterpret_cast<void (*)()>(watch));

struct Connection {
  explicit Connection(const std::string& path) {
    if (registered != SQLITE_OK || sqlite3_open_v2(path.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr))
      throw std::logic_error("cannot open " + path);
    sqlite3_trace_v2(handle, 0, nullptr, nullptr);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { sqlite3_close(handle); }

  sqlite3* handle = nullptr;
};

using Statement = std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)>;

// None for a statement of a migration, which only a store of a former version understands.
Statement prepare(const Connection& connection, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(connection.handle, sql.c_str(), -1, &statement, nullptr);
  return {statement, &sqlite3_finalize};
}

// A step of a plan.
struct Node {
  bool isRepeated = false;  // once for each row of something else
  bool hasLoop = false;     // a step below it, met already, goes over many rows
};

bool startsWith(std::string_view text, std::string_view start) { return text.starts_with(start); }

// A user has a handful of clients.
bool isShort(std::string_view scan) {
  return startsWith(scan, "SCAN clients") || scan == "SCAN CONSTANT ROW";
}

// A scan runs once for each row of the loops before it, and of those around it.
bool hasNestedScan(sqlite3_stmt* plan, std::string& text) {
  std::unordered_map<int, Node> nodes;
  bool found = false;
  while (sqlite3_step(plan) == SQLITE_ROW) {
    const std::string_view detail = reinterpret_cast<const char*>(sqlite3_column_text(plan, 3));
    text.append("\n  ").append(detail);
    Node& parent = nodes[sqlite3_column_int(plan, 1)];
    Node node{parent.isRepeated || startsWith(detail, "CORRELATED"), false};
    if (startsWith(detail, "SCAN") && !isShort(detail)) found = found || node.isRepeated || parent.hasLoop;
    if (startsWith(detail, "SCAN") || startsWith(detail, "SEARCH")) parent.hasLoop = !isShort(detail);
    nodes[sqlite3_column_int(plan, 0)] = node;
  }
  return found;
}

// Pragmas, transactions and the schema's own statements loop over no rows.
bool hasPlan(std::string_view sql) {
  for (const std::string_view verb : {"SELECT", "INSERT", "UPDATE", "DELETE", "WITH", "REPLACE"}) {
    if (startsWith(sql, verb)) return true;
  }
  return false;
}

}  // namespace

std::vector<std::string> takeNestedScans(const std::string& storePath) {
  std::vector<std::string> found;
  if (unexplained.empty()) return found;
  const Connection connection(storePath);
  for (const std::string& sql : unexplained) {
    if (!hasPlan(sql)) continue;
    const Statement plan = prepare(connection, "EXPLAIN QUERY PLAN " + sql);
    std::string text = sql;
    if (plan && hasNestedScan(plan.get(), text)) found.push_back(text);
  }
  unexplained.clear();
  return found;
}

}  // namespace corvane
