#pragma once

namespace corvane {

/// A store as the first version wrote it, in SQL. It never changes, whatever becomes of the steps that lead
/// from there to the present form.
///
/// "a" and "b" held a folder F (record 1) with the bookmark A (2), and the bookmark Old (3). Then "a" deleted
/// Old, in session 2, of which "b" has not heard. A plan of "b" was refused.
inline constexpr const char* kFirstVersionStore = R"sql(
  PRAGMA application_id = 0x4c6f6f6d;
  CREATE TABLE truth(
    one INTEGER PRIMARY KEY CHECK (one = 1),
    revision INTEGER NOT NULL,
    next_record INTEGER NOT NULL,
    forgotten_revision INTEGER NOT NULL
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
    entity INTEGER NOT NULL CHECK (entity IN (0, 1)),
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
    description BLOB NOT NULL,
    registered REAL NOT NULL,
    reset_pending INTEGER NOT NULL DEFAULT 0,
    synced_revision INTEGER,
    sessions INTEGER NOT NULL DEFAULT 0,
    without_records INTEGER NOT NULL DEFAULT 0,
    handed_down INTEGER NOT NULL DEFAULT 0,
    last_session REAL
  );
  CREATE TABLE client_values(
    client INTEGER NOT NULL REFERENCES clients(id) ON DELETE CASCADE,
    key TEXT NOT NULL,
    value BLOB NOT NULL,
    PRIMARY KEY (client, key)
  ) WITHOUT ROWID;
  CREATE TABLE base(
    client INTEGER NOT NULL REFERENCES clients(id) ON DELETE CASCADE,
    record INTEGER NOT NULL,
    local_id TEXT,
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
    client TEXT NOT NULL,
    began REAL NOT NULL,
    ended REAL,
    mode INTEGER NOT NULL,
    revision INTEGER NOT NULL,
    taken INTEGER NOT NULL,
    changed INTEGER NOT NULL,
    handed_down INTEGER NOT NULL,
    refused INTEGER NOT NULL DEFAULT 0
  );
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
  CREATE TABLE refusals(
    client INTEGER PRIMARY KEY REFERENCES clients(id) ON DELETE CASCADE,
    digest TEXT NOT NULL,
    deletions INTEGER NOT NULL,
    live INTEGER NOT NULL,
    refused REAL NOT NULL,
    approved REAL
  );
  CREATE TABLE refused_deletions(
    client INTEGER NOT NULL REFERENCES refusals(client) ON DELETE CASCADE,
    record INTEGER NOT NULL,
    PRIMARY KEY (client, record)
  ) WITHOUT ROWID;

  UPDATE truth SET revision = 2, next_record = 4;
  INSERT INTO contents VALUES(1, 'F', NULL, 0, 0), (2, 'A', 'http://a/', 0, 0), (3, 'Old', 'http://old/', 0, 0);
  INSERT INTO records VALUES
    (1, x'0102030405060708090a0b0c0d0e0f01', 0, 0, 1024, 1, 1),
    (2, x'0102030405060708090a0b0c0d0e0f02', 1, 1, 1024, 2, 1);
  INSERT INTO tombstones VALUES(3, x'0102030405060708090a0b0c0d0e0f03', 1, 0, 2048, 3, 2);
  INSERT INTO clients VALUES
    (1, 'a', x'62706c6973743030d101025b446973706c61794e616d6557436f7276616e65080b17000000000000010100000000000000030000000000000000000000000000001f', 1000.5, 0, 2, 2, 0, 0, 2000.5),
    (2, 'b', x'62706c6973743030d101025b446973706c61794e616d6557436f7276616e65080b17000000000000010100000000000000030000000000000000000000000000001f', 1001.5, 0, 1, 1, 0, 1, 1500.5);
  INSERT INTO client_values VALUES(1, 'key', x'62706c6973743030546b65707408000000000000010100000000000000010000000000000000000000000000000d');
  INSERT INTO base VALUES
    (1, 1, 'a-1', 0, 0, 0, 1, 0, 0), (1, 2, 'a-2', 1, 1, 0, 2, 0, 0),
    (2, 1, 'b-1', 0, 0, 0, 1, 0, 0), (2, 2, 'b-2', 1, 1, 0, 2, 0, 0), (2, 3, 'b-3', 1, 0, 1, 3, 0, 0);
  INSERT INTO sessions VALUES
    (1, 'a', 1000.5, 1000.75, 3, 1, 3, 3, 0, 0),
    (2, 'a', 2000.25, 2000.5, 2, 2, 2, 1, 0, 0);
  INSERT INTO changes VALUES
    (1, 1, 0, NULL, NULL, NULL, 0, 1024, 1), (1, 2, 1, NULL, NULL, NULL, 1, 1024, 2),
    (1, 3, 1, NULL, NULL, NULL, 0, 2048, 3), (2, 3, 1, 0, 2048, 3, NULL, NULL, NULL);
  INSERT INTO losses VALUES(1, 2, 2, 'name', 'A', 'Another A', 1);
  INSERT INTO refusals VALUES(2, '0123456789abcdef', 3, 3, 1600.5, NULL);
  INSERT INTO refused_deletions VALUES(2, 1), (2, 2), (2, 3);
  PRAGMA user_version = 1;
)sql";

}  // namespace corvane
