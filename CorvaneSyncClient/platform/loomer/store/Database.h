#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/text/String.h"

struct sqlite3;
struct sqlite3_stmt;

namespace corvane::loomer {

/// What the engine's store raises. The reason names the store's path, the operation, what SQLite said and
/// what to do.
class LoomerStoreException : public PlatformException {
 public:
  /// About the store at `path`; `what` is wrong, a sentence without its full stop, and `remedy` says what to
  /// do.
  LoomerStoreException(const std::string& path, const Message& what, const Message& remedy);
  /// With the whole reason.
  explicit LoomerStoreException(Message reason)
      : PlatformException("LoomerStoreException", std::move(reason)) {}
};

/// The store's file holds something else than what the engine wrote there. Says what to do about it.
class DamagedStoreException : public LoomerStoreException {
 public:
  /// `what` is wrong with the file at `path`: a clause for the message.
  DamagedStoreException(const std::string& path, const Message& what);
};

/// There is no room on the disk for what an operation takes, be it only to read what others may write
/// meanwhile.
class FullDiskException : public LoomerStoreException {
 public:
  using LoomerStoreException::LoomerStoreException;
};

/// How a database is reached.
enum class Access {
  shared,     ///< beside others, who may write meanwhile; takes some room beside the file
  alone,      ///< others wait meanwhile; takes no room
  unchanging  ///< to be read, on a file system on which nobody can write
};

/// Bytes to be stored as they are.
struct Blob {
  std::string_view bytes;
};

class Database;

/// A prepared statement on loan from its database; goes back when this object goes. Parameters are bound in
/// order: absent strings and empty optionals as NULL.
class Statement {
 public:
  /// Made by `Database::query`.
  Statement(Database& database, sqlite3_stmt* statement, const char* sql, const char* purpose)
      : _database(database), _statement(statement), _sql(sql), _purpose(purpose) {}
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement();

  /// Runs a statement that answers no rows; it can be run again with other parameters.
  template <typename... Parameters>
  void run(const Parameters&... parameters) {
    bindAll(false, parameters...);
    execute();
  }
  /// Starts a query; `next` steps to its first row.
  template <typename... Parameters>
  Statement& open(const Parameters&... parameters) {
    bindAll(true, parameters...);
    return *this;
  }
  /// Whether there is another row, which the accessors below then read.
  bool next();

  /// The columns of the row, from 0 on.
  bool isNull(int column) const;
  std::int64_t integer(int column) const;
  std::optional<std::int64_t> optionalInteger(int column) const;
  double real(int column) const;
  /// The absent string for NULL.
  String text(int column) const;
  /// Valid until the next step.
  std::string_view blob(int column) const;

 private:
  template <typename... Parameters>
  void bindAll([[maybe_unused]] bool copied, const Parameters&... parameters) {
    reset();
    [[maybe_unused]] int index = 0;
    (bind(++index, copied, parameters), ...);
  }
  void bind(int index, bool copied, std::int64_t value);
  void bind(int index, bool copied, int value) { bind(index, copied, std::int64_t{value}); }
  void bind(int index, bool copied, bool value) { bind(index, copied, std::int64_t{value}); }
  void bind(int index, bool copied, std::size_t value) { bind(index, copied, std::int64_t(value)); }
  void bind(int index, bool copied, double value);
  void bind(int index, bool copied, const String& value);
  void bind(int index, bool copied, const std::string& value);
  void bind(int index, bool copied, const Blob& value);
  void bind(int index, bool copied, const std::optional<std::int64_t>& value);
  void reset();
  void execute();
  void check(int code) const;

  Database& _database;
  sqlite3_stmt* _statement;
  const char* _sql;
  const char* _purpose;
};

/// Rows on their way into a table, as SQLite reads them.
struct RowsToInsert {
  struct Cell {
    const char* text;     ///< null for a number
    std::int64_t number;  ///< or the bytes of the text
    bool isNull;
  };
  std::vector<Cell> cells;  ///< row by row, with room for more
  std::size_t columns = 0;
  std::size_t count = 0;  ///< of the cells that are there
};

/// One connection to an existing SQLite file: the only code that speaks SQLite's C interface. Statements are
/// prepared once and lent again. One thread. Every failure raises LoomerStoreException.
class Database {
 public:
  /// Opens the file, which must exist (an empty one is an empty database).
  explicit Database(std::string path, Access access = Access::shared);
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;
  ~Database();

  const std::string& path() const { return _path; }
  /// `sql` and `purpose` must be literals or constants that live as long: they are kept by address. A purpose
  /// is the key of the text that says what failed, the cause in place of "%1":
  /// `MessageText<1>("cannot read the clients: %1").english()`.
  Statement query(const char* sql, const char* purpose);
  /// Runs any number of statements without parameters.
  void execute(const std::string& sql, const char* purpose);
  /// The one number that `sql` answers.
  std::int64_t integer(const char* sql, const char* purpose);

  /// Starts a transaction that may write; false when another connection is in one.
  bool tryBegin();
  /// Makes the transaction durable. On failure it is still open and must be rolled back.
  void commit();
  /// Ends the transaction without its effects; nothing when there is none.
  void rollback() noexcept;
  /// Whether a transaction is open.
  bool inTransaction() const;
  /// The number that the last INSERT gave to its row.
  std::int64_t lastInsertedRow() const;

  /// Raises LoomerStoreException for an error code of SQLite: what was to be done, and why it failed. Where
  /// there was no room it is a FullDiskException.
  [[noreturn]] void fail(int code, const char* purpose) const;

 private:
  friend class Statement;
  friend class RowInsertion;
  /// The prepared statements of one text.
  struct StatementPool {
    std::vector<sqlite3_stmt*> idle;
    std::size_t made = 0;  // idle or lent
  };
  sqlite3_stmt* prepare(const char* sql, const char* purpose);
  void giveBack(const char* sql, sqlite3_stmt* statement) noexcept;

  std::string _path;
  sqlite3* _connection = nullptr;
  std::unordered_map<const char*, StatementPool> _statements;
  const RowsToInsert* _inserting = nullptr;  // what the statement that runs inserts
};

/// How rows of one table are inserted. Must live as long as the databases that it is used with.
struct RowInsert {
  /// `into`: "INSERT INTO table(column, column)"; at most `kMostColumns`.
  RowInsert(const std::string& into, std::size_t columnCount);

  static constexpr std::size_t kMostColumns = 10;
  static constexpr std::size_t kMany = 64;  ///< rows that go with one statement
  std::string sql;
  std::size_t columns;
};

/// Inserts rows of one table, many with one statement, which reads them where they are: to begin and to end a
/// statement, and to bind its values, takes as long as to insert a short row.
class RowInsertion {
 public:
  /// `most`: about how many rows are to come.
  RowInsertion(Database& database, const RowInsert& insert, std::size_t most, const char* purpose);
  RowInsertion(const RowInsertion&) = delete;
  RowInsertion& operator=(const RowInsertion&) = delete;
  ~RowInsertion();

  /// Inserts a row, with the next `finish` at the latest; its texts must live until then.
  template <typename... Values>
  void add(const Values&... values) {
    RowsToInsert::Cell* to = _rows.cells.data() + _rows.count;
    ((*to++ = cell(values)), ...);
    _rows.count += sizeof...(values);
    if (_rows.count == _rows.cells.size()) finish();
  }
  /// Inserts all rows that were added.
  void finish();

 private:
  static RowsToInsert::Cell cell(std::int64_t value) { return {nullptr, value, false}; }
  static RowsToInsert::Cell cell(std::size_t value) {
    return {nullptr, static_cast<std::int64_t>(value), false};
  }
  static RowsToInsert::Cell cell(bool value) { return {nullptr, std::int64_t{value}, false}; }
  static RowsToInsert::Cell cell(const std::optional<std::int64_t>& value) {
    return {nullptr, value.value_or(0), !value};
  }
  static RowsToInsert::Cell cell(const String& value) {
    return {value.view().data(), static_cast<std::int64_t>(value.view().size()), !value};
  }

  Database& _database;
  Statement _statement;
  RowsToInsert _rows;
};

}  // namespace corvane::loomer
