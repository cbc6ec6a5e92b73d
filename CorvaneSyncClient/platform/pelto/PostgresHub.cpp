#include "CorvaneSyncClient/platform/pelto/PostgresHub.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <utility>

#include "CorvaneSyncClient/platform/system/Platform.h"

// Every call is one transaction; remoteChanges adds a second one, at most once a day, that notes the
// computer. A transaction begins with timeouts that end with it. The server's timeouts equal the client's, so
// that a statement which the client has given up ends on the server too, and the locks of a computer that
// falls silent are released.
//
// Pushes of one account queue at its row: begin_push updates it on condition that it is in the expected
// state. In a READ COMMITTED transaction, a computer that waited sees the row as the winner left it, finds
// the condition false and reports that. There is no other lock, so the computers alone can neither deadlock
// nor fail to serialise. An administrator's statements still can conflict with them, and on a standby server
// so can the primary's changes.

namespace corvane::pelto {

namespace {

// The most that one statement carries: records, and bytes of their names and addresses. With some 100 bytes
// more per record, a line of 256 kbit/s transfers that in half of a statement's time. Larger statements would
// gain little on a fast line, since a statement costs only one round trip besides its records.
constexpr std::size_t kRowsPerStatement = 1024;
constexpr std::size_t kBytesPerStatement = 128 << 10;

// The service says how much an account may hold, but it cannot make a computer read without end. These limits
// are four times the service's defaults: bytes of names and addresses, live records, and tombstones for each
// live record.
constexpr std::int64_t kMostBytesTaken = std::int64_t{4} << 30;
constexpr std::int64_t kMostRecordsTaken = 4'000'000;
constexpr std::int64_t kTombstonesForARecord = 3;

// How many of the states that were given again a computer is told of.
constexpr std::size_t kStatesGivenAgain = 128;

// How often a transaction that conflicts with another one is run.
constexpr int kAttempts = 5;

constexpr const char* kReading = "ISOLATION LEVEL REPEATABLE READ, READ ONLY";
constexpr const char* kWriting = "ISOLATION LEVEL READ COMMITTED, READ WRITE";
constexpr const char* kReadChanges = "read what is new";
constexpr const char* kGiveChanges = "give changes";
constexpr const char* kAskForPush = "ask how an earlier push ended";
constexpr const char* kReadSetting = "read the setting of this computer";
constexpr const char* kChangeSetting = "change the setting of this computer";
constexpr const char* kNoteComputer = "note this computer";

std::string beginning(const char* kind, const HubTimeouts& timeouts) {
  const auto statement = std::lround(timeouts.statement * 1000);
  const std::pair<const char*, long> settings[] = {
      {"statement_timeout", statement},
      {"lock_timeout", std::max(statement * 2 / 3, 1L)},
      {"idle_in_transaction_session_timeout", statement * 2},
      // The timeouts above do not apply while the server waits for the rest of a statement from a computer
      // that is gone. Seconds.
      {"tcp_keepalives_idle", 20},
      {"tcp_keepalives_interval", 5},
      {"tcp_keepalives_count", 3},
  };
  std::string statements = std::string("BEGIN ") + kind;
  for (const auto& [name, value] : settings)
    statements += std::string("; SET LOCAL ") + name + " = " + std::to_string(value);
  return statements;
}

std::string bigintArray(const std::vector<std::int64_t>& numbers) {
  std::string array = "{";
  for (const std::int64_t each : numbers) array += (array.size() > 1 ? "," : "") + std::to_string(each);
  return array + "}";
}

// This computer's name as the service stores it.
String computerName() {
  std::string name = Platform::current().process.hostName().substr(0, 255);
  for (char& c : name) {
    if (c < ' ' || c > '~') c = '?';
  }
  return name;
}

// The bytes that count towards kBytesPerStatement.
std::size_t sizeOf(const HubRecord& record) { return record.name.view().size() + record.url.view().size(); }

// The records of one statement, column by column.
class RecordBatch {
 public:
  bool isEmpty() const { return _rows == 0; }
  bool isFull() const { return _rows >= kRowsPerStatement || _bytes >= kBytesPerStatement; }

  void add(const HubRecord& record) {
    ++_rows;
    _bytes += sizeOf(record);
    _ids.add(record.id);
    _folders.add(record.folder);
    _parents.add(record.parent);
    _positions.add(record.position);
    _names.add(record.name);
    _urls.add(record.url);
    _tabGroups.add(record.tabGroup);
    _specials.add(record.special);
    _deletions.add(record.deleted);
  }

  // The parameters of put_records. Leaves the batch empty.
  std::vector<HubValue> take() {
    _rows = 0;
    _bytes = 0;
    return {_ids.take(),  _folders.take(),   _parents.take(),  _positions.take(), _names.take(),
            _urls.take(), _tabGroups.take(), _specials.take(), _deletions.take()};
  }

 private:
  std::size_t _rows = 0;
  std::size_t _bytes = 0;
  HubArray _ids{HubType::uuids};
  HubArray _folders{HubType::booleans};
  HubArray _parents{HubType::uuids};
  HubArray _positions{HubType::integers};
  HubArray _names{HubType::byteses};
  HubArray _urls{HubType::byteses};
  HubArray _tabGroups{HubType::booleans};
  HubArray _specials{HubType::booleans};
  HubArray _deletions{HubType::booleans};
};

HubRecord recordIn(const HubRows& row) {
  HubRecord record;
  record.revision = row.big(0, 0);
  record.id = row.uuid(0, 1);
  record.folder = row.boolean(0, 2);
  record.parent = row.uuid(0, 3);
  record.position = row.integer(0, 4);
  record.name = row.textOfBytes(0, 5);
  record.url = row.textOfBytes(0, 6);
  record.tabGroup = row.boolean(0, 7);
  record.special = row.boolean(0, 8);
  record.deleted = row.boolean(0, 9);
  return record;
}

// How much has been read, and the limit.
struct Allowance {
  std::size_t rows = 0;
  std::size_t bytes = 0;
  std::size_t mostRows;
  std::size_t mostBytes;

  bool isUsedUp() const { return rows >= mostRows || bytes >= mostBytes; }
  bool isExceeded() const { return rows > mostRows || bytes > mostBytes; }
  void take(const HubRows& row) {
    ++rows;
    bytes += row.length(0, 5) + row.length(0, 6);
  }
};

}  // namespace

struct PostgresHub::State {
  std::int64_t account = 0;
  HubState now;
  std::int64_t room = 0;
  std::int64_t roomForBytes = 0;
  std::int64_t recordLimit = 0;
  std::int64_t byteLimit = 0;
  std::int64_t forgottenRevision = 0;
  bool isEnabled = false;
  bool isNoted = false;  // whether the computer was noted with its present name within the last day
};

// The revisions after which live records and tombstones are read.
struct PostgresHub::Since {
  std::int64_t revision = 0;
  std::int64_t deletions = kNever;

  static constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
  bool isLiveAlone() const { return deletions == kNever; }
};

PostgresHub::PostgresHub(std::string_view url, String computer, HubTimeouts timeouts)
    : _address(parseHubAddress(url)),
      _computer(std::move(computer)),
      _timeouts(timeouts),
      _end(after(timeouts.exchange)) {}

HubConnection& PostgresHub::connected() {
  if (!_connection) {
    _connection = std::make_unique<HubConnection>(_address, _timeouts, _end);
    checkVersion(*_connection);
  }
  return *_connection;
}

void PostgresHub::checkVersion(HubConnection& connection) {
  constexpr const char* kPurpose = "read its version";
  const HubRows rows = connection.run("SELECT number, oldest_client FROM corvane_hub.version", {}, kPurpose);
  if (rows.count() != 1) {
    throw hubException(_address, kPurpose, "its database is not set up completely",
                       "Set it up: docs/hub.md.");
  }
  const std::int32_t version = rows.integer(0, 0), oldestClient = rows.integer(0, 1);
  if (version < kHubVersion) {
    throw hubException(_address, "use what is kept",
                       "it is of version " + std::to_string(version) + ", and this program needs version " +
                           std::to_string(kHubVersion),
                       "Have the service brought up to date with hub-setup: docs/hub.md.");
  }
  if (oldestClient > kHubVersion) {
    throw hubException(_address, "use what is kept",
                       "it is of version " + std::to_string(version) +
                           ", which serves programs from version " + std::to_string(oldestClient) +
                           ", and this program is of version " + std::to_string(kHubVersion),
                       "Install a newer version of this program.");
  }
}

template <typename Transaction>
auto PostgresHub::repeatingOnConflict(const Transaction& transaction) {
  for (int attempt = 1;; ++attempt) {
    try {
      return transaction(connected());
    } catch (const HubConflict&) {
      _connection.reset();
      if (attempt == kAttempts) throw;
    } catch (...) {
      _connection.reset();
      throw;
    }
  }
}

template <typename Work>
auto PostgresHub::reading(const char* purpose, const Work& work) {
  return repeatingOnConflict([&](HubConnection& connection) {
    connection.run(beginning(kReading, _timeouts), purpose);
    auto answer = work(connection);
    connection.run("COMMIT", purpose);
    return answer;
  });
}

template <typename Work>
PostgresHub::Ending PostgresHub::writing(const char* purpose, const Work& work) {
  return repeatingOnConflict([&](HubConnection& connection) {
    connection.run(beginning(kWriting, _timeouts), purpose);
    const Ending ending = work(connection);
    connection.run(ending == Ending::commit ? "COMMIT" : "ROLLBACK", purpose);
    return ending;
  });
}

// `rows` is the result of a query for the user's own account, of which there is at most one.
void PostgresHub::requireAccount(const HubRows& rows, const char* purpose) const {
  if (rows.count() == 1) return;
  throw hubException(_address, purpose, "the user has no account there",
                     "Have the account made: docs/hub.md.");
}

PostgresHub::State PostgresHub::readState(HubConnection& connection) {
  const HubRows rows = connection.run(
      "SELECT a.id, a.uid, a.revision, a.mark, a.record_limit - a.live_records, a.byte_limit - a.live_bytes,"
      " a.forgotten_revision,"
      " COALESCE((SELECT s.enabled FROM corvane_hub.settings s"
      "   WHERE s.account = a.id AND s.computer = $1 AND s.data_class = $2), false),"
      " EXISTS(SELECT FROM corvane_hub.computers c WHERE c.account = a.id AND c.id = $1 AND c.name = $3"
      "   AND c.last_seen > now() - interval '1 day'),"
      " a.record_limit, a.byte_limit"
      " FROM corvane_hub.accounts a WHERE a.role = session_user",
      {uuidValue(_computer), textValue(kHubDataClass), textValue(computerName())}, kReadChanges);
  requireAccount(rows, kReadChanges);
  State state;
  state.account = rows.big(0, 0);
  state.now = {rows.uuid(0, 1), rows.big(0, 2), rows.uuid(0, 3)};
  state.room = rows.big(0, 4);
  state.roomForBytes = rows.big(0, 5);
  state.forgottenRevision = rows.big(0, 6);
  state.isEnabled = rows.boolean(0, 7);
  state.isNoted = rows.boolean(0, 8);
  state.recordLimit = std::clamp<std::int64_t>(rows.big(0, 9), 0, kMostRecordsTaken);
  state.byteLimit = std::clamp<std::int64_t>(rows.big(0, 10), 0, kMostBytesTaken);
  return state;
}

// The newest of those states, all of one account, that are part of this account's history. An exchange
// without changes needs no query for that, and one with a service that was not restored queries only the
// first state.
std::optional<HubState> PostgresHub::newestCommon(HubConnection& connection, const State& state,
                                                  const std::vector<HubState>& seen) {
  if (seen.empty() || seen.front().account != state.now.account) return std::nullopt;
  if (seen.front() == state.now) return state.now;
  const auto first = newestOf(connection, state, {seen.front()});
  return first || seen.size() == 1 ? first : newestOf(connection, state, seen);
}

// This is a separate statement that names the account by its number, so that the server opens only the
// account's partition: opening all of them costs a new connection more than everything else.
std::optional<HubState> PostgresHub::newestOf(HubConnection& connection, const State& state,
                                              const std::vector<HubState>& seen) {
  std::optional<HubState> beginning;
  HubArray pushIds(HubType::uuids);
  for (const HubState& each : seen) {
    if (each.pushId) {
      pushIds.add(each.pushId);
    } else {
      beginning = each;
    }
  }
  const HubRows rows = connection.run(
      "SELECT revision, mark FROM corvane_hub.pushes WHERE account = $1 AND mark = ANY($2)"
      " ORDER BY revision DESC LIMIT 1",
      {bigValue(state.account), pushIds.take()}, kReadChanges);
  return rows.count() == 1 ? HubState{state.now.account, rows.big(0, 0), rows.uuid(0, 1)} : beginning;
}

// The first of those states, before the one in common, that was lost and given again.
std::optional<HubState> PostgresHub::firstGivenAgain(HubConnection& connection, const State& state,
                                                     const std::vector<HubState>& seen,
                                                     const std::optional<HubState>& common) {
  if (seen.empty() || seen.front().account != state.now.account || common == seen.front())
    return std::nullopt;
  HubArray pushIds(HubType::uuids);
  for (const HubState& each : seen) {
    if (each == common) break;
    if (each.pushId) pushIds.add(each.pushId);
  }
  const HubRows rows = connection.run(
      "SELECT lost_revision, mark FROM corvane_hub.given_again WHERE account = $1 AND mark = ANY($2)"
      " ORDER BY array_position($2, mark) LIMIT 1",
      {bigValue(state.account), pushIds.take()}, kReadChanges);
  if (rows.count() == 0) return std::nullopt;
  return HubState{state.now.account, rows.big(0, 0), rows.uuid(0, 1)};
}

// Reads past states, whether or not the computer has seen them.
void PostgresHub::readPast(HubConnection& connection, const State& state, RemoteChanges& remote) {
  const std::int64_t since = remote.common ? remote.common->revision : 0;
  if (since == state.now.revision) return;
  const auto sampled = sampledRevisions(since, state.now.revision);
  const std::string revisions = bigintArray(sampled);
  const auto take = [&](const HubRows& row) {
    std::vector<HubState>& states = row.boolean(0, 2) ? remote.pastGivenAgain : remote.past;
    if (states.size() == std::max(sampled.size(), kStatesGivenAgain))
      connection.failMalformed(kReadChanges, "it gives more than was asked for");
    states.push_back({state.now.account, row.big(0, 0), row.uuid(0, 1)});
  };
  connection.forEachRow(
      "(SELECT revision, mark, false FROM corvane_hub.pushes WHERE account = $1"
      " AND revision = ANY($2::bigint[]) ORDER BY revision DESC) UNION ALL "
      "(SELECT lost_revision, mark, true FROM corvane_hub.given_again WHERE account = $1 AND revision > $3"
      " ORDER BY revision DESC, lost_revision DESC LIMIT $4)",
      {bigValue(state.account), textValue(revisions), bigValue(since),
       bigValue(static_cast<std::int64_t>(kStatesGivenAgain))},
      kReadChanges, take);
}

// Pages follow the index on (revision, id) and are limited in rows and bytes. The last row of a page may
// exceed the bytes.
constexpr const char* kReadPage =
    "SELECT revision, id, folder, parent, position, name, url, tab_group, special, deleted FROM ("
    "  SELECT *, sum(COALESCE(octet_length(name), 0) + COALESCE(octet_length(url), 0))"
    "    OVER (ORDER BY revision, id ROWS BETWEEN UNBOUNDED PRECEDING AND 1 PRECEDING) AS bytes_before"
    "  FROM (SELECT * FROM corvane_hub.records"
    "        WHERE account = $1 AND (revision, id) > ($2, $3) AND NOT (deleted AND revision <= $4)"
    "        ORDER BY revision, id LIMIT $5) AS page) AS measured"
    " WHERE COALESCE(bytes_before, 0) < $6";

void PostgresHub::readRecords(HubConnection& connection, const State& state, Since since,
                              RemoteChanges& remote) {
  std::int64_t revision = since.revision;
  String id = "FFFFFFFF-FFFF-FFFF-FFFF-FFFFFFFFFFFF";
  const std::int64_t mostRecords = state.recordLimit * (since.isLiveAlone() ? 1 : 1 + kTombstonesForARecord);
  Allowance account{.mostRows = static_cast<std::size_t>(mostRecords),
                    .mostBytes = static_cast<std::size_t>(state.byteLimit)};
  for (bool isLast = false; !isLast;) {
    Allowance page{.mostRows = kRowsPerStatement, .mostBytes = kBytesPerStatement};
    const auto take = [&](const HubRows& row) {
      if (page.isUsedUp()) connection.failMalformed(kReadChanges, "it gives more than was asked for");
      page.take(row);
      account.take(row);
      if (account.isExceeded())
        connection.failMalformed(kReadChanges, "it gives more than the account may hold");
      remote.records.push_back(recordIn(row));
      revision = row.big(0, 0);
      id = remote.records.back().id;
    };
    connection.forEachRow(kReadPage,
                          {bigValue(state.account), bigValue(revision), uuidValue(id),
                           bigValue(since.deletions), bigValue(static_cast<std::int64_t>(page.mostRows)),
                           bigValue(static_cast<std::int64_t>(page.mostBytes))},
                          kReadChanges, take);
    isLast = !page.isUsedUp();
  }
}

RemoteChanges PostgresHub::remoteChanges(const std::vector<HubState>& seen) {
  bool isNoted = true;
  RemoteChanges found = reading(kReadChanges, [&](HubConnection& connection) {
    const State state = readState(connection);
    RemoteChanges remote;
    remote.now = state.now;
    remote.enabled = state.isEnabled;
    if (!state.isEnabled) return remote;
    isNoted = state.isNoted;
    remote.room = state.room;
    remote.roomForBytes = state.roomForBytes;
    remote.common = newestCommon(connection, state, seen);
    remote.givenAgain = firstGivenAgain(connection, state, seen, remote.common);
    const bool continues = remote.common && *remote.common == seen.front();
    remote.whole = !continues || remote.common->revision < state.forgottenRevision;
    readPast(connection, state, remote);
    Since since;
    if (!remote.whole) since.revision = since.deletions = remote.common->revision;
    if (!continues && remote.common) since.deletions = remote.common->revision;
    if (since.revision < state.now.revision) {
      // A page is read along the index, even when the statistics of an account that has just grown are old.
      connection.run(
          "SET LOCAL enable_seqscan = off; SET LOCAL enable_bitmapscan = off; SET LOCAL enable_sort = off",
          kReadChanges);
      readRecords(connection, state, since, remote);
    }
    return remote;
  });
  if (!isNoted) noteComputer();
  return found;
}

void PostgresHub::noteComputer() {
  try {
    writing(kNoteComputer, [&](HubConnection& connection) {
      connection.run("SELECT corvane_hub.note_computer($1, $2)",
                     {uuidValue(_computer), textValue(computerName())}, kNoteComputer);
      return Ending::commit;
    });
  } catch (const PlatformException&) {
    // The administrator's list stays a day behind. The exchange goes on.
  }
}

HubPushed PostgresHub::push(const HubPush& push) {
  const Ending ending = writing(kGiveChanges, [&](HubConnection& connection) {
    const HubRows rows =
        connection.run("SELECT corvane_hub.begin_push($1, $2, $3, $4, $5)",
                       {uuidValue(push.expected.account), bigValue(push.expected.revision),
                        uuidValue(push.expected.pushId), uuidValue(push.id), uuidValue(_computer)},
                       kGiveChanges);
    if (!rows.boolean(0, 0)) return Ending::rollBack;
    putRecords(connection, push.records);
    giveAgain(connection, push.givesAgain);
    return Ending::commit;
  });
  if (ending == Ending::rollBack) return {};
  return {HubPushed::Outcome::done, {push.expected.account, push.expected.revision + 1, push.id}};
}

// Deletions go first, so that a full account accepts a push that deletes as much as it adds.
void PostgresHub::putRecords(HubConnection& connection, const std::vector<HubRecord>& records) {
  RecordBatch batch;
  const auto send = [&] {
    if (batch.isEmpty()) return;
    connection.run("SELECT corvane_hub.put_records($1, $2, $3, $4, $5, $6, $7, $8, $9)", batch.take(),
                   kGiveChanges);
  };
  for (const bool deleted : {true, false}) {
    for (const HubRecord& record : records) {
      if (record.deleted != deleted) continue;
      batch.add(record);
      if (batch.isFull()) send();
    }
    send();
  }
}

void PostgresHub::giveAgain(HubConnection& connection, const std::vector<HubState>& states) {
  HubArray pushIds(HubType::uuids);
  std::vector<std::int64_t> revisions;
  for (const HubState& each : states) {
    if (!each.pushId) continue;  // the account's beginning
    pushIds.add(each.pushId);
    revisions.push_back(each.revision);
  }
  if (revisions.empty()) return;
  connection.run("SELECT corvane_hub.give_again($1, $2::bigint[])",
                 {pushIds.take(), textValue(bigintArray(revisions))}, kGiveChanges);
}

bool PostgresHub::hasPush(const String& pushId) {
  return reading(kAskForPush, [&](HubConnection& connection) {
    const HubRows rows = connection.run(
        "SELECT EXISTS(SELECT FROM corvane_hub.pushes p WHERE p.account = a.id AND p.mark = $1)"
        "  OR EXISTS(SELECT FROM corvane_hub.given_again g WHERE g.account = a.id AND g.mark = $1)"
        " FROM corvane_hub.accounts a WHERE a.role = session_user",
        {uuidValue(pushId)}, kAskForPush);
    requireAccount(rows, kAskForPush);
    return rows.boolean(0, 0);
  });
}

bool PostgresHub::isEnabled(const String& dataClass) {
  return reading(kReadSetting, [&](HubConnection& connection) {
    const HubRows rows = connection.run(
        "SELECT EXISTS(SELECT FROM corvane_hub.settings s WHERE s.account = a.id"
        " AND s.computer = $1 AND s.data_class = $2 AND s.enabled)"
        " FROM corvane_hub.accounts a WHERE a.role = session_user",
        {uuidValue(_computer), textValue(dataClass)}, kReadSetting);
    requireAccount(rows, kReadSetting);
    return rows.boolean(0, 0);
  });
}

void PostgresHub::setEnabled(const String& dataClass, bool enabled) {
  writing(kChangeSetting, [&](HubConnection& connection) {
    connection.run(
        "SELECT corvane_hub.set_enabled($1, $2, $3, $4)",
        {uuidValue(_computer), textValue(computerName()), textValue(dataClass), booleanValue(enabled)},
        kChangeSetting);
    return Ending::commit;
  });
}

}  // namespace corvane::pelto
