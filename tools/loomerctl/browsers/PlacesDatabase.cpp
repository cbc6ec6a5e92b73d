#include "tools/loomerctl/browsers/PlacesDatabase.h"

#include <sqlite3.h>

#include <memory>
#include <utility>

#include "CorvaneSyncClient/platform/foundation/text/Utf8.h"
#include "CorvaneSyncClient/platform/system/Messages.h"
#include "tools/loomerctl/Invocation.h"

namespace corvane::loomerctl {

namespace {

// Texts of a damaged database may come up again and again; none of a sound one comes near these.
constexpr int kLongestText = 1 << 24;
constexpr std::size_t kMostText = std::size_t{1} << 30;

struct Close {
  void operator()(sqlite3* connection) const { sqlite3_close(connection); }
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

// A database of somebody else's in memory, of which nothing is believed.
class ForeignDatabase {
 public:
  ForeignDatabase(std::string_view bytes, const std::string& name) : _bytes(bytes), _name(name) {
    sqlite3* connection = nullptr;
    const int opened = sqlite3_open_v2(":memory:", &connection, SQLITE_OPEN_READWRITE, nullptr);
    _connection.reset(connection);
    check(opened);
    // SQLite asks for bytes that may be written, and is told not to.
    auto* const image = reinterpret_cast<unsigned char*>(const_cast<char*>(bytes.data()));
    const auto size = static_cast<sqlite3_int64>(bytes.size());
    check(sqlite3_deserialize(connection, "main", image, size, size, SQLITE_DESERIALIZE_READONLY));
    // No text of its schema is run: no view can stand for a table.
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_limit(connection, SQLITE_LIMIT_LENGTH, kLongestText);
  }

  // Starts a query.
  void open(const char* sql) {
    _statement.reset();  // now, since its end clears what went wrong
    sqlite3_stmt* statement = nullptr;
    const int prepared = sqlite3_prepare_v2(_connection.get(), sql, -1, &statement, nullptr);
    _statement.reset(statement);
    check(prepared);
  }

  bool next() {
    const int code = sqlite3_step(_statement.get());
    if (code == SQLITE_DONE) return false;
    if (code != SQLITE_ROW) check(code);
    // Each row takes several bytes.
    if (++_rows > _bytes.size()) refuse(tr("There are more rows than can be in it."));
    return true;
  }

  std::int64_t integer(int column) { return sqlite3_column_int64(_statement.get(), column); }
  bool isNull(int column) { return sqlite3_column_type(_statement.get(), column) == SQLITE_NULL; }

  // Empty for NULL.
  std::string text(int column) {
    const auto* const bytes = reinterpret_cast<const char*>(sqlite3_column_text(_statement.get(), column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(_statement.get(), column));
    if (!bytes) return {};
    _text += size;
    if (_text > kMostText) refuse(tr("There is more text than can be in it."));
    return withoutZeros(repairedUtf8({bytes, size}));
  }

 private:
  [[noreturn]] void refuse(const std::string& cause) const {
    throw Refused{tr("%1 cannot be read as places.sqlite of Firefox: %2", _name, cause)};
  }

  void check(int code) const {
    if (code == SQLITE_OK) return;
    // Also where memory runs out: a damaged file asks for more than there is.
    refuse(std::string(sqlite3_errmsg(_connection.get())) + '.');
  }

  std::string_view _bytes;
  const std::string& _name;
  std::unique_ptr<sqlite3, Close> _connection;
  std::unique_ptr<sqlite3_stmt, Close> _statement;
  std::size_t _rows = 0;
  std::size_t _text = 0;
};

std::vector<PlacesRow> rowsOf(ForeignDatabase& database) {
  std::vector<PlacesRow> rows;
  database.open(
      "SELECT b.id, b.parent, b.position, b.type, b.fk, b.dateAdded OR b.lastModified, b.guid, b.title, "
      "p.url "
      "FROM moz_bookmarks b LEFT JOIN moz_places p ON p.id = b.fk");
  while (database.next()) {
    PlacesRow& row = rows.emplace_back();
    row.id = database.integer(0);
    row.parent = database.integer(1);
    row.position = database.integer(2);
    row.type = database.integer(3);
    row.place = database.integer(4);
    row.dated = database.integer(5) != 0;
    row.guid = database.text(6);
    row.title = database.text(7);
    row.url = database.text(8);
  }
  return rows;
}

std::vector<PlacesNote> notesOf(ForeignDatabase& database, const char* sql) {
  std::vector<PlacesNote> notes;
  database.open(sql);
  while (database.next()) notes.push_back({database.integer(0), database.text(1), database.text(2)});
  return notes;
}

}  // namespace

PlacesContents readPlaces(std::string_view bytes, const std::string& name) {
  ForeignDatabase database(bytes, name);
  PlacesContents contents;
  contents.rows = rowsOf(database);
  contents.keywords = notesOf(database, "SELECT place_id, keyword, post_data FROM moz_keywords");
  contents.annotations = notesOf(database,
                                 "SELECT a.item_id, n.name, a.content FROM moz_items_annos a "
                                 "LEFT JOIN moz_anno_attributes n ON n.id = a.anno_attribute_id");
  return contents;
}

}  // namespace corvane::loomerctl
