#include "CorvaneSyncClient/platform/loomer/store/Database.h"

#include <sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <system_error>

#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane::loomer {

namespace {

constexpr const char* kReachAlone = MessageText<1>("cannot keep others from it: %1").english();
constexpr const char* kBeginTransaction = MessageText<1>("cannot begin a transaction: %1").english();
constexpr const char* kCommitSession = MessageText<1>("cannot commit the session: %1").english();

// Other connections hold SQLite's short internal locks (recovery, checkpoint) for milliseconds. Waiting for
// another session is not this: that happens in TruthStore, on the platform's clock.
constexpr int kBusyMilliseconds = 5000;

constexpr TextKey kDamagedStoreRemedy = TextKey(
    "The file was left as it is. Put a backup of it in its place, or move it and the files beside it (-wal, "
    "-shm) away: the next session then builds a new store from the bookmarks of each client.");

bool isDamage(int code) { return (code & 0xff) == SQLITE_CORRUPT || (code & 0xff) == SQLITE_NOTADB; }

// To read from a write-ahead log takes an index beside the file, which others share.
bool isFull(int code, int systemError) {
  return (code & 0xff) == SQLITE_FULL || code == SQLITE_IOERR_SHMSIZE ||
         ((code & 0xff) == SQLITE_IOERR && (systemError == ENOSPC || systemError == EDQUOT));
}

Message remedyFor(int code) {
  switch (code & 0xff) {
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_CANTOPEN:
    case SQLITE_AUTH:
      return Message(
          "Give yourself permission to read and write the file and its directory, and sync again.");
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return Message("Wait until the other session has ended and sync again.");
    case SQLITE_IOERR:
      return Message("Check the disk that holds the file and sync again.");
    default:
      return Message("Nothing was changed. Sync again; if it keeps failing, run `loomerctl check`.");
  }
}

// What was to be done, and why it failed.
Message failed(const char* purpose, const std::string& cause) {
  Message message;
  message.kind = Message::Kind::text;
  message.english = purpose;
  message.values.emplace_back(cause);
  return message;
}

sqlite3_destructor_type lifetime(bool copied) { return copied ? SQLITE_TRANSIENT : SQLITE_STATIC; }

}  // namespace

LoomerStoreException::LoomerStoreException(const std::string& path, const Message& what,
                                           const Message& remedy)
    : PlatformException("LoomerStoreException",
                        sentences(Message("The bookmarks sync store %1: %2.", path, what), remedy)) {}

DamagedStoreException::DamagedStoreException(const std::string& path, const Message& what)
    : LoomerStoreException(path, what, Message(kDamagedStoreRemedy)) {}

Statement::~Statement() { _database.giveBack(_sql, _statement); }

bool Statement::next() {
  const int code = sqlite3_step(_statement);
  if (code == SQLITE_ROW) return true;
  if (code != SQLITE_DONE) check(code);
  return false;
}

void Statement::execute() {
  const int code = sqlite3_step(_statement);
  if (code != SQLITE_DONE && code != SQLITE_ROW) check(code);
  reset();
}

void Statement::reset() { sqlite3_reset(_statement); }

void Statement::check(int code) const {
  if (code != SQLITE_OK) _database.fail(code, _purpose);
}

bool Statement::isNull(int column) const { return sqlite3_column_type(_statement, column) == SQLITE_NULL; }

std::int64_t Statement::integer(int column) const { return sqlite3_column_int64(_statement, column); }

std::optional<std::int64_t> Statement::optionalInteger(int column) const {
  if (isNull(column)) return std::nullopt;
  return integer(column);
}

double Statement::real(int column) const { return sqlite3_column_double(_statement, column); }

String Statement::text(int column) const {
  const unsigned char* text = sqlite3_column_text(_statement, column);
  if (!text) return String();
  return String(std::string_view(reinterpret_cast<const char*>(text),
                                 static_cast<std::size_t>(sqlite3_column_bytes(_statement, column))));
}

std::string_view Statement::blob(int column) const {
  const void* bytes = sqlite3_column_blob(_statement, column);
  if (!bytes) return {};
  return {static_cast<const char*>(bytes),
          static_cast<std::size_t>(sqlite3_column_bytes(_statement, column))};
}

void Statement::bind(int index, bool, std::int64_t value) {
  check(sqlite3_bind_int64(_statement, index, value));
}

void Statement::bind(int index, bool, double value) { check(sqlite3_bind_double(_statement, index, value)); }

void Statement::bind(int index, bool copied, const String& value) {
  if (!value) return check(sqlite3_bind_null(_statement, index));
  const std::string_view text = value.view();
  check(sqlite3_bind_text64(_statement, index, text.data(), text.size(), lifetime(copied), SQLITE_UTF8));
}

void Statement::bind(int index, bool copied, const std::string& value) {
  check(sqlite3_bind_text64(_statement, index, value.data(), value.size(), lifetime(copied), SQLITE_UTF8));
}

// What has no bytes may have no address, which to SQLite is NULL.
void Statement::bind(int index, bool copied, const Blob& value) {
  const char* const bytes = value.bytes.empty() ? "" : value.bytes.data();
  check(sqlite3_bind_blob64(_statement, index, bytes, value.bytes.size(), lifetime(copied)));
}

void Statement::bind(int index, bool copied, const std::optional<std::int64_t>& value) {
  if (value) return bind(index, copied, *value);
  check(sqlite3_bind_null(_statement, index));
}

namespace {

// There is one thread, and nobody asks for memory statistics: without both SQLite takes no locks of its own.
// Ignored by a library that somebody has begun to use already, which is then as right and a little slower.
void configureLibrary() {
  static const bool configured = sqlite3_config(SQLITE_CONFIG_SINGLETHREAD) == SQLITE_OK &&
                                 sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0) == SQLITE_OK;
  static_cast<void>(configured);
}

// A path as it stands in a URI of SQLite's.
std::string percentEncoded(const std::string& path) {
  std::string encoded;
  for (const char each : path) {
    if (each == '%' || each == '?' || each == '#') {
      encoded += each == '%' ? "%25" : each == '?' ? "%3f" : "%23";
    } else {
      encoded += each;
    }
  }
  return encoded;
}

}  // namespace

namespace {

// The rows to be inserted are a table of SQLite's that is made of them: "INSERT ... SELECT ... FROM" it. One
// row of it is one of theirs; it cannot be written, and holds nothing between statements.
constexpr const char* kRowsTable = "rows_to_insert";
constexpr const char* kRowsSchema = "CREATE TABLE x(c0, c1, c2, c3, c4, c5, c6, c7, c8, c9)";
static_assert(RowInsert::kMostColumns == 10);

struct RowsTable : sqlite3_vtab {
  const RowsToInsert* const* rows = nullptr;
};

struct RowsCursor : sqlite3_vtab_cursor {
  const RowsToInsert* rows = nullptr;
  std::size_t at = 0;
};

RowsCursor& cursorOf(sqlite3_vtab_cursor* cursor) { return *static_cast<RowsCursor*>(cursor); }

int connectRows(sqlite3* connection, void* rows, int, const char* const*, sqlite3_vtab** made, char**) {
  auto* const table = new (std::nothrow) RowsTable();
  if (!table) return SQLITE_NOMEM;
  table->rows = static_cast<const RowsToInsert* const*>(rows);
  *made = table;
  return sqlite3_declare_vtab(connection, kRowsSchema);
}

int disconnectRows(sqlite3_vtab* table) {
  delete static_cast<RowsTable*>(table);
  return SQLITE_OK;
}

int planRows(sqlite3_vtab*, sqlite3_index_info*) { return SQLITE_OK; }

int openRows(sqlite3_vtab* table, sqlite3_vtab_cursor** made) {
  const RowsToInsert* const rows = *static_cast<RowsTable*>(table)->rows;
  if (!rows) return SQLITE_MISUSE;
  auto* const cursor = new (std::nothrow) RowsCursor();
  if (!cursor) return SQLITE_NOMEM;
  cursor->rows = rows;
  *made = cursor;
  return SQLITE_OK;
}

int closeRows(sqlite3_vtab_cursor* cursor) {
  delete &cursorOf(cursor);
  return SQLITE_OK;
}

int firstRow(sqlite3_vtab_cursor* cursor, int, const char*, int, sqlite3_value**) {
  cursorOf(cursor).at = 0;
  return SQLITE_OK;
}

int nextRow(sqlite3_vtab_cursor* cursor) {
  RowsCursor& rows = cursorOf(cursor);
  rows.at += rows.rows->columns;
  return SQLITE_OK;
}

int isBehindRows(sqlite3_vtab_cursor* cursor) {
  const RowsCursor& rows = cursorOf(cursor);
  return rows.at >= rows.rows->count ? 1 : 0;
}

int answerCell(sqlite3_vtab_cursor* cursor, sqlite3_context* answer, int column) {
  const RowsCursor& rows = cursorOf(cursor);
  const RowsToInsert::Cell& cell = rows.rows->cells[rows.at + static_cast<std::size_t>(column)];
  if (cell.isNull) {
    sqlite3_result_null(answer);
  } else if (cell.text) {
    sqlite3_result_text64(answer, cell.text, static_cast<sqlite3_uint64>(cell.number), SQLITE_STATIC,
                          SQLITE_UTF8);
  } else {
    sqlite3_result_int64(answer, cell.number);
  }
  return SQLITE_OK;
}

int answerRow(sqlite3_vtab_cursor* cursor, sqlite3_int64* row) {
  *row = static_cast<sqlite3_int64>(cursorOf(cursor).at);
  return SQLITE_OK;
}

// Without a function that makes one, the table is there by its name and in no schema.
constexpr sqlite3_module rowsModule() {
  sqlite3_module module = {};
  module.xConnect = connectRows;
  module.xDisconnect = disconnectRows;
  module.xBestIndex = planRows;
  module.xOpen = openRows;
  module.xClose = closeRows;
  module.xFilter = firstRow;
  module.xNext = nextRow;
  module.xEof = isBehindRows;
  module.xColumn = answerCell;
  module.xRowid = answerRow;
  return module;
}
constexpr sqlite3_module kRowsModule = rowsModule();

}  // namespace

Database::Database(std::string path, Access access) : _path(std::move(path)) {
  configureLibrary();
  const bool isUnchanging = access == Access::unchanging;
  const int flags = isUnchanging ? SQLITE_OPEN_READONLY | SQLITE_OPEN_URI : SQLITE_OPEN_READWRITE;
  const std::string name = isUnchanging ? "file:" + percentEncoded(_path) + "?immutable=1" : _path;
  int code = sqlite3_open_v2(name.c_str(), &_connection, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  if (code == SQLITE_OK) code = sqlite3_create_module(_connection, kRowsTable, &kRowsModule, &_inserting);
  if (code != SQLITE_OK) {
    const std::string message = _connection ? sqlite3_errmsg(_connection) : sqlite3_errstr(code);
    sqlite3_close(_connection);
    throw LoomerStoreException(_path, Message("cannot open it: %1", message), remedyFor(code));
  }
  sqlite3_extended_result_codes(_connection, 1);
  sqlite3_busy_timeout(_connection, kBusyMilliseconds);
  if (access == Access::alone) execute("PRAGMA locking_mode = EXCLUSIVE", kReachAlone);
}

Database::~Database() {
  for (auto& [sql, pool] : _statements) {
    for (sqlite3_stmt* statement : pool.idle) sqlite3_finalize(statement);
  }
  sqlite3_close(_connection);  // rolls an open transaction back
}

Statement Database::query(const char* sql, const char* purpose) {
  return Statement(*this, prepare(sql, purpose), sql, purpose);
}

sqlite3_stmt* Database::prepare(const char* sql, const char* purpose) {
  StatementPool& pool = _statements[sql];
  if (!pool.idle.empty()) {
    sqlite3_stmt* statement = pool.idle.back();
    pool.idle.pop_back();
    return statement;
  }
  pool.idle.reserve(pool.made + 1);  // giving back needs no memory
  sqlite3_stmt* statement = nullptr;
  const int code = sqlite3_prepare_v3(_connection, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  if (code != SQLITE_OK) fail(code, purpose);
  ++pool.made;
  return statement;
}

void Database::giveBack(const char* sql, sqlite3_stmt* statement) noexcept {
  sqlite3_reset(statement);  // answers the failure that was already raised
  sqlite3_clear_bindings(statement);
  _statements.find(sql)->second.idle.push_back(statement);
}

void Database::execute(const std::string& sql, const char* purpose) {
  const int code = sqlite3_exec(_connection, sql.c_str(), nullptr, nullptr, nullptr);
  if (code != SQLITE_OK) fail(code, purpose);
}

std::int64_t Database::integer(const char* sql, const char* purpose) {
  Statement statement = query(sql, purpose);
  return statement.open().next() ? statement.integer(0) : 0;
}

bool Database::tryBegin() {
  sqlite3_busy_timeout(_connection, 0);
  const int code = sqlite3_exec(_connection, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
  sqlite3_busy_timeout(_connection, kBusyMilliseconds);
  if (code == SQLITE_OK) return true;
  if ((code & 0xff) == SQLITE_BUSY) return false;
  fail(code, kBeginTransaction);
}

void Database::commit() { execute("COMMIT", kCommitSession); }

void Database::rollback() noexcept {
  // SQLite may have rolled back by itself after a full disk or an input/output error; a failing ROLLBACK
  // leaves nothing to be done: the transaction is not committed, and closing the file drops it.
  if (inTransaction()) sqlite3_exec(_connection, "ROLLBACK", nullptr, nullptr, nullptr);
}

bool Database::inTransaction() const { return sqlite3_get_autocommit(_connection) == 0; }

std::int64_t Database::lastInsertedRow() const { return sqlite3_last_insert_rowid(_connection); }

void Database::fail(int code, const char* purpose) const {
  const int systemError = sqlite3_system_errno(_connection);
  if (isFull(code, systemError)) {
    const std::string cause = std::system_category().message(systemError == EDQUOT ? EDQUOT : ENOSPC);
    throw FullDiskException(_path, failed(purpose, cause), Message("Make room on the disk and sync again."));
  }
  const Message what = failed(purpose, sqlite3_errmsg(_connection));
  if (isDamage(code)) throw DamagedStoreException(_path, what);
  throw LoomerStoreException(_path, what, remedyFor(code));
}

RowInsert::RowInsert(const std::string& into, std::size_t columnCount)
    : sql(into + " SELECT c0"), columns(columnCount) {
  for (std::size_t i = 1; i < columns; ++i) sql += ", c" + std::to_string(i);
  sql += std::string(" FROM ") + kRowsTable;
}

RowInsertion::RowInsertion(Database& database, const RowInsert& insert, std::size_t most, const char* purpose)
    : _database(database), _statement(database.query(insert.sql.c_str(), purpose)) {
  _rows.columns = insert.columns;
  _rows.cells.resize(std::clamp<std::size_t>(most, 1, RowInsert::kMany) * insert.columns);
}

RowInsertion::~RowInsertion() {
  if (_database._inserting == &_rows) _database._inserting = nullptr;  // the statement failed
}

void RowInsertion::finish() {
  if (_rows.count == 0) return;
  _database._inserting = &_rows;
  _statement.run();
  _database._inserting = nullptr;
  _rows.count = 0;
}

}  // namespace corvane::loomer
