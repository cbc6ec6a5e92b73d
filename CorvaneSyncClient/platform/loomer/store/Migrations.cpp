#include "CorvaneSyncClient/platform/loomer/store/Migrations.h"

#include "CorvaneSyncClient/platform/foundation/Message.h"

namespace corvane::loomer {

namespace {

constexpr const char* kReadKind = MessageText<1>("cannot read its kind: %1").english();
constexpr const char* kReadTables = MessageText<1>("cannot read its tables: %1").english();
constexpr const char* kBringToPresentForm =
    MessageText<1>("cannot bring it to its present form: %1").english();
constexpr const char* kRecordVersion = MessageText<1>("cannot record its version: %1").english();

// Live records and tombstones are two tables, so that the laws of the tree are constraints: every parent is a
// live record (the root is the row 0, the only one without a parent), and no two siblings share a place. The
// parent's constraint waits for the commit; places are taken through parking numbers (see RecordTable),
// because SQLite checks uniqueness at each statement.
//
// What a record says is a row of "contents" that is written once, never changed, and removed only with the
// last that refers to it: the record, the bases of the clients and both sides of the change log refer to the
// same row. Every content that the truth ever held stays as long as the log names it. References to it are
// no foreign keys: looking each one up would cost a first session a fifth of its time, and the check of the
// store reports one that leads nowhere.
constexpr const char* kVersion1 = R"sql(
  PRAGMA application_id = 0x4c6f6f6d;

  CREATE TABLE truth(
    one INTEGER PRIMARY KEY CHECK (one = 1),
    revision INTEGER NOT NULL,            -- of the last session that changed a record
    next_record INTEGER NOT NULL,         -- the first record number never given
    forgotten_revision INTEGER NOT NULL   -- the greatest revision of a tombstone that was dropped
  );
  INSERT INTO truth VALUES(1, 0, 1, 0);

  CREATE TABLE contents(
    id INTEGER PRIMARY KEY,
    name TEXT,
    url TEXT,
    tab_group INTEGER NOT NULL,
    special INTEGER NOT NULL
  );

  CREATE TABLE records(
    id INTEGER PRIMARY KEY,
    global_id BLOB NOT NULL DEFAULT (randomblob(16)),
    entity INTEGER NOT NULL CHECK (entity IN (0, 1)),   -- 0 folder, 1 bookmark
    parent INTEGER REFERENCES records(id) DEFERRABLE INITIALLY DEFERRED,
    place INTEGER NOT NULL,
    content INTEGER,
    revision INTEGER NOT NULL,
    CHECK (parent <> id),
    CHECK ((id = 0) = (parent IS NULL)),
    CHECK ((id = 0) = (content IS NULL))
  );
  CREATE UNIQUE INDEX siblings ON records(parent, place);
  INSERT INTO records(id, entity, parent, place, content, revision) VALUES(0, 0, NULL, 0, NULL, 0);

  CREATE TABLE tombstones(
    id INTEGER PRIMARY KEY,
    global_id BLOB NOT NULL,
    entity INTEGER NOT NULL,
    parent INTEGER NOT NULL,
    place INTEGER NOT NULL,
    content INTEGER NOT NULL,
    revision INTEGER NOT NULL
  );
  CREATE INDEX tombstones_by_revision ON tombstones(revision);

  CREATE TABLE clients(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    identifier TEXT NOT NULL UNIQUE,
    description BLOB NOT NULL,                   -- binary property list
    registered REAL NOT NULL,                    -- seconds since 2001-01-01 00:00:00 UTC, as all times here
    reset_pending INTEGER NOT NULL DEFAULT 0,    -- replace the client's records at its next session
    synced_revision INTEGER,                     -- the truth that its base stands for; null: no base yet
    sessions INTEGER NOT NULL DEFAULT 0,         -- finished ones
    without_records INTEGER NOT NULL DEFAULT 0,  -- finished sessions in a row that took no records
    handed_down INTEGER NOT NULL DEFAULT 0,      -- the last finished session handed something down
    last_session REAL
  );

  CREATE TABLE client_values(
    client INTEGER NOT NULL REFERENCES clients(id) ON DELETE CASCADE,
    key TEXT NOT NULL,
    value BLOB NOT NULL,                         -- binary property list
    PRIMARY KEY (client, key)
  ) WITHOUT ROWID;

  CREATE TABLE base(
    client INTEGER NOT NULL REFERENCES clients(id) ON DELETE CASCADE,
    record INTEGER NOT NULL,
    local_id TEXT,                               -- null for a record that the client does not hold
    entity INTEGER NOT NULL,
    parent INTEGER NOT NULL,
    position INTEGER NOT NULL,
    content INTEGER NOT NULL,
    refused_revision INTEGER NOT NULL,
    not_held INTEGER NOT NULL,
    PRIMARY KEY (client, record)
  ) WITHOUT ROWID;

  CREATE TABLE sessions(
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    client TEXT NOT NULL,                        -- the identifier: the log outlives registrations; or who else
    began REAL NOT NULL,
    ended REAL,
    mode INTEGER NOT NULL,                       -- 1 fast, 2 slow, 3 refresh, 4 replace, 5 undo, 6 import
    revision INTEGER NOT NULL,                   -- of the truth after it
    taken INTEGER NOT NULL,                      -- records taken from the client
    changed INTEGER NOT NULL,                    -- records of the truth changed
    handed_down INTEGER NOT NULL,                -- changes offered to the client
    refused INTEGER NOT NULL DEFAULT 0           -- changes that the client refused or ignored
  );

  -- One row for each record that a session changed. A side without a place is a record that was not there or deleted.
  CREATE TABLE changes(
    session INTEGER NOT NULL REFERENCES sessions(id),
    record INTEGER NOT NULL,
    entity INTEGER NOT NULL,
    before_parent INTEGER,
    before_place INTEGER,
    before_content INTEGER,
    after_parent INTEGER,
    after_place INTEGER,
    after_content INTEGER,
    PRIMARY KEY (session, record)
  ) WITHOUT ROWID;

  CREATE TABLE losses(
    id INTEGER PRIMARY KEY,
    session INTEGER NOT NULL REFERENCES sessions(id),
    record INTEGER NOT NULL,
    attribute TEXT NOT NULL,
    client_value TEXT NOT NULL,
    truth_value TEXT NOT NULL,
    client_won INTEGER NOT NULL
  );

  -- The plan of a client that the guard refused, and whether somebody approved it since.
  CREATE TABLE refusals(
    client INTEGER PRIMARY KEY REFERENCES clients(id) ON DELETE CASCADE,
    digest TEXT NOT NULL,
    deletions INTEGER NOT NULL,
    live INTEGER NOT NULL,
    refused REAL NOT NULL,
    approved REAL
  );

  -- What such a plan would delete.
  CREATE TABLE refused_deletions(
    client INTEGER NOT NULL REFERENCES refusals(client) ON DELETE CASCADE,
    record INTEGER NOT NULL,
    PRIMARY KEY (client, record)
  ) WITHOUT ROWID;
)sql";

// The log forgets. A first session's changes have nothing before them, so that the index costs it nothing.
constexpr const char* kVersion2 = R"sql(
  -- Of this session and those before it the log tells nothing any more, even where rows are left to be dropped.
  ALTER TABLE truth ADD COLUMN pruned_session INTEGER NOT NULL DEFAULT 0;
  CREATE INDEX changes_by_before ON changes(before_content) WHERE before_content IS NOT NULL;
  CREATE INDEX losses_by_session ON losses(session);
)sql";

// A client may be given back what it lacks.
constexpr const char* kVersion3 = R"sql(
  -- Delete nothing because the client lacks it, at its next session.
  ALTER TABLE clients ADD COLUMN give_back_pending INTEGER NOT NULL DEFAULT 0;
)sql";

constexpr const char* kVersion4 = R"sql(
  -- The last session was cancelled.
  ALTER TABLE clients ADD COLUMN cancelled INTEGER NOT NULL DEFAULT 0;
)sql";

// A client that can go back to an earlier state is met over the base of that state.
constexpr const char* kVersion5 = R"sql(
  -- The number of the client's session since which it has held this.
  ALTER TABLE base ADD COLUMN since INTEGER NOT NULL DEFAULT 1;

  -- What such a client held before, from the end of one of its sessions to the end of another.
  CREATE TABLE former_base(
    client INTEGER NOT NULL REFERENCES clients(id) ON DELETE CASCADE,
    record INTEGER NOT NULL,
    since INTEGER NOT NULL,
    until INTEGER NOT NULL,
    local_id TEXT NOT NULL,
    entity INTEGER NOT NULL,
    parent INTEGER NOT NULL,
    position INTEGER NOT NULL,
    content INTEGER NOT NULL,
    lost INTEGER NOT NULL DEFAULT 0,   -- the client was put back to before it held this, and knows of no deletion
    PRIMARY KEY (client, record, since)
  ) WITHOUT ROWID;
  CREATE INDEX former_base_by_end ON former_base(client, until);
  CREATE INDEX lost_base ON former_base(client, record) WHERE lost;
)sql";

// Where the values that the online service holds come from.
constexpr const char* kVersion6 = R"sql(
  CREATE TABLE origins(
    client INTEGER NOT NULL REFERENCES clients(id) ON DELETE CASCADE,
    local_id BLOB NOT NULL CHECK (length(local_id) = 16),
    -- Of name, address, tab group, folder and place, 16 bytes each; 16 in all when they are one.
    pushes BLOB NOT NULL CHECK (length(pushes) IN (16, 80)),
    PRIMARY KEY (client, local_id)
  ) WITHOUT ROWID;
)sql";

// What the online service is known to have held, and to have deleted, in every past that it had.
constexpr const char* kVersion7 = R"sql(
  -- Every push out of which the state has grown that the client's base stands for.
  CREATE TABLE pushes(
    client INTEGER NOT NULL REFERENCES clients(id) ON DELETE CASCADE,
    push BLOB NOT NULL CHECK (length(push) = 16),
    revision INTEGER NOT NULL,       -- of the state that it made
    session INTEGER NOT NULL,        -- the number of the client's session that learned of it
    PRIMARY KEY (client, push)
  ) WITHOUT ROWID;

  -- The push that deleted a record first.
  CREATE TABLE deletions(
    client INTEGER NOT NULL REFERENCES clients(id) ON DELETE CASCADE,
    local_id BLOB NOT NULL CHECK (length(local_id) = 16),
    push BLOB NOT NULL CHECK (length(push) = 16),
    session INTEGER NOT NULL,        -- the number of the client's session that learned of it
    PRIMARY KEY (client, local_id)
  ) WITHOUT ROWID;
)sql";

// What a client has not changed need not be merged to find that out.
constexpr const char* kVersion8 = R"sql(
  -- What a client gave when it, its base and the truth last agreed on everything.
  CREATE TABLE agreements(
    client INTEGER PRIMARY KEY REFERENCES clients(id) ON DELETE CASCADE,
    hash_key BLOB NOT NULL CHECK (length(hash_key) = 16),
    digests BLOB NOT NULL CHECK (length(digests) % 8 = 0)   -- of each record 8 bytes, in the client's order
  );
)sql";

constexpr const char* kMigrations[] = {kVersion1, kVersion2, kVersion3, kVersion4,
                                       kVersion5, kVersion6, kVersion7, kVersion8};

constexpr const char* kVersionQuery = "PRAGMA user_version";

}  // namespace

std::span<const char* const> storeMigrations() { return kMigrations; }

void refuseUnusableStore(Database& database, std::span<const char* const> steps) {
  const std::int64_t version = database.integer(kVersionQuery, kReadVersion);
  const std::int64_t application = database.integer("PRAGMA application_id", kReadKind);
  const bool empty = database.integer("SELECT count(*) FROM sqlite_schema", kReadTables) == 0;
  if (empty && version == 0 && application == 0) return;
  if (application != kStoreApplicationId || version <= 0) {
    throw LoomerStoreException(database.path(),
                               Message("this is a database, but not one of the sync engine's"),
                               Message("The file was left as it is. Move it away and sync again."));
  }
  if (version > static_cast<std::int64_t>(steps.size())) {
    throw LoomerStoreException(
        database.path(),
        Message("it is of version %1, and this program knows versions up to %2", std::to_string(version),
                std::to_string(steps.size())),
        Message("The file was left as it is. Install the newer version of this program that wrote it."));
  }
}

void migrate(Database& database, std::span<const char* const> steps) {
  const auto taken = static_cast<std::size_t>(database.integer(kVersionQuery, kReadVersion));
  for (std::size_t version = taken; version < steps.size(); ++version) {
    database.execute(steps[version], kBringToPresentForm);
    database.execute("PRAGMA user_version = " + std::to_string(version + 1), kRecordVersion);
  }
}

}  // namespace corvane::loomer
