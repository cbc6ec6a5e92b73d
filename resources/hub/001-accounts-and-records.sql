-- The online service's schema: a versioned record store for each account. It merges nothing.
--
-- Permissions. All objects belong to corvane_hub_owner, a role that nobody can log in as and that is not a superuser.
-- Each account is a login role and a member of corvane_account. It may read its own rows and call the functions below, and
-- may write to no table. The functions run as the owner. Row-level security is forced on the owner too and uses
-- session_user, the role that logged in: neither SET ROLE nor a bug in a function gives access to another account's rows.
--
-- Poolers that share a connection between transactions work, since nothing here outlives a transaction.

CREATE SCHEMA corvane_hub AUTHORIZATION corvane_hub_owner;
SET LOCAL ROLE corvane_hub_owner;

CREATE TABLE corvane_hub.version(
  number integer NOT NULL,         -- of the last script applied
  oldest_client integer NOT NULL   -- the oldest version of a program that is still served; a script that breaks older
                                   -- ones raises it
);
CREATE UNIQUE INDEX one_version ON corvane_hub.version((true));
INSERT INTO corvane_hub.version VALUES(1, 1);

CREATE TABLE corvane_hub.accounts(
  id bigint GENERATED ALWAYS AS IDENTITY PRIMARY KEY,
  uid uuid NOT NULL UNIQUE DEFAULT gen_random_uuid(),
  role name NOT NULL UNIQUE,                       -- the login role
  revision bigint NOT NULL DEFAULT 0,              -- of the last push
  mark uuid,                                       -- the id of the last push; null at revision 0
  pushed_in xid8,                                  -- the transaction of the last push
  live_records bigint NOT NULL DEFAULT 0,
  record_limit bigint NOT NULL DEFAULT 1000000,
  live_bytes bigint NOT NULL DEFAULT 0,            -- of the live records' names and urls
  byte_limit bigint NOT NULL DEFAULT 1073741824,
  tombstones bigint NOT NULL DEFAULT 0,
  forgotten_revision bigint NOT NULL DEFAULT 0,    -- the greatest revision of a dropped tombstone
  created timestamptz NOT NULL DEFAULT now(),
  CONSTRAINT accounts_live_records CHECK (live_records >= 0),
  CONSTRAINT accounts_record_limit CHECK (live_records <= record_limit),
  CONSTRAINT accounts_live_bytes CHECK (live_bytes >= 0),
  CONSTRAINT accounts_byte_limit CHECK (live_bytes <= byte_limit),
  CONSTRAINT accounts_tombstones CHECK (tombstones >= 0),
  CONSTRAINT accounts_tombstone_limit CHECK (tombstones <= 3 * record_limit),
  CONSTRAINT accounts_mark CHECK ((revision = 0) = (mark IS NULL))
) WITH (fillfactor = 70);

-- Texts are bytes, since PostgreSQL's text cannot hold U+0000; readable_records below shows them as text. There are no
-- foreign keys to accounts: only the functions below write, for an account that they have just looked up.
CREATE TABLE corvane_hub.records(
  account bigint NOT NULL,
  id uuid NOT NULL,
  folder boolean NOT NULL,       -- else a bookmark
  parent uuid,                   -- null under the root
  position integer NOT NULL,
  name bytea,
  url bytea,
  tab_group boolean NOT NULL,
  special boolean NOT NULL,
  deleted boolean NOT NULL,      -- a tombstone, of which only the id and the revision count
  revision bigint NOT NULL,      -- of the push that wrote it
  changed timestamptz NOT NULL,
  PRIMARY KEY (account, id),
  CONSTRAINT records_length CHECK (COALESCE(octet_length(name), 0) + COALESCE(octet_length(url), 0) <= 1048576)
) PARTITION BY HASH (account);
CREATE INDEX records_by_revision ON corvane_hub.records(account, revision, id);
CREATE INDEX tombstones_by_age ON corvane_hub.records(account, changed) WHERE deleted;

-- The history of each account, which shows whether a state that a computer has seen is part of it.
CREATE TABLE corvane_hub.pushes(
  account bigint NOT NULL,
  revision bigint NOT NULL,
  mark uuid NOT NULL,
  computer uuid NOT NULL,
  at timestamptz NOT NULL,
  PRIMARY KEY (account, revision),
  UNIQUE (account, mark)
) PARTITION BY HASH (account);

-- A million accounts with a thousand records each make sixteen million rows per partition, which vacuum in minutes.
DO $$
BEGIN
  FOR part IN 0..63 LOOP
    EXECUTE format('CREATE TABLE corvane_hub.records_%s PARTITION OF corvane_hub.records
                    FOR VALUES WITH (MODULUS 64, REMAINDER %s)', part, part);
  END LOOP;
  FOR part IN 0..15 LOOP
    EXECUTE format('CREATE TABLE corvane_hub.pushes_%s PARTITION OF corvane_hub.pushes
                    FOR VALUES WITH (MODULUS 16, REMAINDER %s)', part, part);
  END LOOP;
END $$;

CREATE TABLE corvane_hub.computers(
  account bigint NOT NULL REFERENCES corvane_hub.accounts(id) ON DELETE CASCADE,
  id uuid NOT NULL,
  name text NOT NULL CHECK (char_length(name) <= 255),
  last_seen timestamptz NOT NULL,   -- to the day
  PRIMARY KEY (account, id)
);

CREATE TABLE corvane_hub.settings(
  account bigint NOT NULL,
  computer uuid NOT NULL,
  data_class text NOT NULL CHECK (char_length(data_class) <= 255),
  enabled boolean NOT NULL,
  PRIMARY KEY (account, computer, data_class),
  FOREIGN KEY (account, computer) REFERENCES corvane_hub.computers ON DELETE CASCADE
);

-- The account of the role that logged in; null when it has none.
CREATE FUNCTION corvane_hub.my_account() RETURNS bigint
LANGUAGE sql STABLE SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $$
  SELECT id FROM corvane_hub.accounts WHERE role = session_user
$$;

ALTER TABLE corvane_hub.accounts ENABLE ROW LEVEL SECURITY, FORCE ROW LEVEL SECURITY;
ALTER TABLE corvane_hub.records ENABLE ROW LEVEL SECURITY, FORCE ROW LEVEL SECURITY;
ALTER TABLE corvane_hub.pushes ENABLE ROW LEVEL SECURITY, FORCE ROW LEVEL SECURITY;
ALTER TABLE corvane_hub.computers ENABLE ROW LEVEL SECURITY, FORCE ROW LEVEL SECURITY;
ALTER TABLE corvane_hub.settings ENABLE ROW LEVEL SECURITY, FORCE ROW LEVEL SECURITY;
CREATE POLICY own ON corvane_hub.accounts USING (role = session_user);
CREATE POLICY own ON corvane_hub.records USING (account = (SELECT corvane_hub.my_account()));
CREATE POLICY own ON corvane_hub.pushes USING (account = (SELECT corvane_hub.my_account()));
CREATE POLICY own ON corvane_hub.computers USING (account = (SELECT corvane_hub.my_account()));
CREATE POLICY own ON corvane_hub.settings USING (account = (SELECT corvane_hub.my_account()));

-- Drops what is older than 400 days, a little at each push: tombstones, and pushes except the newest thousand. When there
-- are more tombstones than the account may hold records, the oldest ones go whatever their age. A computer whose state is
-- older than a dropped tombstone gets all records; one whose push is gone counts as never seen.
--
-- Old rows are found along an index and deleted by key, one after the other: a single statement would read the whole of an
-- account that has grown since the last statistics were taken, at each push.
CREATE FUNCTION corvane_hub.forget_old(me bigint) RETURNS void
LANGUAGE plpgsql SECURITY DEFINER
SET search_path = pg_catalog, pg_temp
SET enable_seqscan = off SET enable_bitmapscan = off SET enable_sort = off SET plan_cache_mode = force_custom_plan AS $$
DECLARE
  last_kept bigint := (SELECT a.revision - 1000 FROM corvane_hub.accounts a WHERE a.id = me);
  kept_since timestamptz := (SELECT CASE WHEN a.tombstones > a.record_limit THEN 'infinity'
                                    ELSE now() - interval '400 days' END FROM corvane_hub.accounts a WHERE a.id = me);
  forgotten bigint;
  count bigint := 0;
  old record;
BEGIN
  FOR old IN
    SELECT r.id, r.revision FROM corvane_hub.records r
    WHERE r.account = me AND r.deleted AND r.changed < kept_since ORDER BY r.changed LIMIT 1000
  LOOP
    DELETE FROM corvane_hub.records r WHERE r.account = me AND r.id = old.id;
    forgotten := greatest(forgotten, old.revision);
    count := count + 1;
  END LOOP;
  IF forgotten IS NOT NULL THEN
    UPDATE corvane_hub.accounts
      SET forgotten_revision = greatest(forgotten_revision, forgotten), tombstones = tombstones - count WHERE id = me;
  END IF;
  FOR old IN
    SELECT p.revision, p.at FROM corvane_hub.pushes p
    WHERE p.account = me AND p.revision <= last_kept ORDER BY p.revision LIMIT 100
  LOOP
    EXIT WHEN old.at >= now() - interval '400 days';
    DELETE FROM corvane_hub.pushes p WHERE p.account = me AND p.revision = old.revision;
  END LOOP;
END $$;

-- Begins the account's next revision; false when the account is no longer in the expected state. A mark is the id of a
-- push. The second of two transactions that begin one waits until the first has ended. Until the transaction ends,
-- put_records() adds to the revision.
CREATE FUNCTION corvane_hub.begin_push(expected_account uuid, expected_revision bigint, expected_mark uuid,
                                       new_mark uuid, computer uuid) RETURNS boolean
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $$
DECLARE
  me bigint;
  next bigint;
BEGIN
  UPDATE corvane_hub.accounts a
    SET revision = a.revision + 1, mark = new_mark, pushed_in = pg_current_xact_id()
    WHERE a.role = session_user AND a.uid = expected_account AND a.revision = expected_revision
      AND a.mark IS NOT DISTINCT FROM expected_mark
    RETURNING a.id, a.revision INTO me, next;
  IF me IS NULL THEN RETURN false; END IF;
  INSERT INTO corvane_hub.pushes VALUES(me, next, new_mark, computer, now());
  PERFORM corvane_hub.forget_old(me);
  RETURN true;
END $$;

-- Writes records into the push that this transaction began. The arrays have the same length, and no id occurs twice. A
-- tombstone of a record that the account never held is dropped. Raises check_violation: on accounts_record_limit,
-- accounts_byte_limit or accounts_tombstone_limit when the account would hold more than it may, on records_length for a
-- record that is too long, and on records_kind for a folder that becomes a bookmark or the reverse. The last is refused
-- even with a tombstone in between, since a computer that has not seen the tombstone would still see the kind change.
--
-- The join to one row each makes the server look up the previous records by key, one after the other, whatever the
-- statistics say.
CREATE FUNCTION corvane_hub.put_records(ids uuid[], folders boolean[], parents uuid[], positions integer[], names bytea[],
                                        urls bytea[], tab_groups boolean[], specials boolean[], deletions boolean[])
RETURNS void
LANGUAGE plpgsql SECURITY DEFINER
SET search_path = pg_catalog, pg_temp
SET enable_hashjoin = off SET enable_mergejoin = off SET enable_seqscan = off SET enable_bitmapscan = off
SET plan_cache_mode = force_custom_plan AS $$
DECLARE
  me bigint;
  now_at bigint;
  changes record;
BEGIN
  SELECT a.id, a.revision INTO me, now_at FROM corvane_hub.accounts a
    WHERE a.role = session_user AND a.pushed_in = pg_current_xact_id();
  IF me IS NULL THEN
    RAISE EXCEPTION 'this transaction has not begun a push' USING ERRCODE = 'object_not_in_prerequisite_state';
  END IF;
  WITH given AS MATERIALIZED (
    SELECT g.*, r.id IS NOT NULL AS is_known, r.folder AS was_folder, COALESCE(NOT r.deleted, false) AS was_live,
           COALESCE(octet_length(r.name), 0) + COALESCE(octet_length(r.url), 0) AS had_bytes
    FROM unnest(ids, folders, parents, positions, names, urls, tab_groups, specials, deletions)
      AS g(id, folder, parent, position, name, url, tab_group, special, deleted)
    LEFT JOIN LATERAL (SELECT * FROM corvane_hub.records each WHERE each.account = me AND each.id = g.id LIMIT 1) AS r
      ON true
  ), written AS (
    INSERT INTO corvane_hub.records AS r
    SELECT me, g.id, CASE WHEN g.deleted THEN g.was_folder ELSE g.folder END, CASE WHEN NOT g.deleted THEN g.parent END,
           g.position, CASE WHEN NOT g.deleted THEN g.name END, CASE WHEN NOT g.deleted THEN g.url END,
           g.tab_group, g.special, g.deleted, now_at, now()
    FROM given g
    WHERE g.is_known OR NOT g.deleted
    ORDER BY g.id
    ON CONFLICT (account, id) DO UPDATE
    SET folder = excluded.folder, parent = excluded.parent, position = excluded.position, name = excluded.name,
        url = excluded.url, tab_group = excluded.tab_group, special = excluded.special, deleted = excluded.deleted,
        revision = excluded.revision, changed = excluded.changed
  )
  SELECT count(*) FILTER (WHERE NOT g.deleted) - count(*) FILTER (WHERE g.was_live) AS live,
         count(*) FILTER (WHERE g.deleted AND g.is_known) - count(*) FILTER (WHERE g.is_known AND NOT g.was_live)
           AS tombstones,
         COALESCE(sum(COALESCE(octet_length(g.name), 0) + COALESCE(octet_length(g.url), 0)) FILTER (WHERE NOT g.deleted), 0)
           - COALESCE(sum(g.had_bytes), 0) AS bytes,
         bool_or(NOT g.deleted AND g.folder <> g.was_folder) AS kind
    INTO changes FROM given g;
  IF changes.kind THEN
    RAISE EXCEPTION 'a folder can not become a bookmark, nor a bookmark a folder'
      USING ERRCODE = 'check_violation', CONSTRAINT = 'records_kind';
  END IF;
  UPDATE corvane_hub.accounts
    SET live_records = live_records + changes.live, live_bytes = live_bytes + changes.bytes,
        tombstones = tombstones + changes.tombstones
    WHERE id = me;
END $$;

-- Enters the computer, or updates its name and the day. An account has at most a thousand computers: the one that has not
-- been seen for the longest time is dropped with its settings.
CREATE FUNCTION corvane_hub.note_computer(computer uuid, computer_name text) RETURNS void
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $$
DECLARE
  me bigint := corvane_hub.my_account();
BEGIN
  IF me IS NULL THEN
    RAISE EXCEPTION 'role % has no account', session_user USING ERRCODE = 'insufficient_privilege';
  END IF;
  INSERT INTO corvane_hub.computers AS c VALUES(me, computer, computer_name, now())
    ON CONFLICT (account, id) DO UPDATE SET name = excluded.name, last_seen = excluded.last_seen;
  DELETE FROM corvane_hub.computers c WHERE c.account = me AND c.id IN (
    SELECT old.id FROM corvane_hub.computers old WHERE old.account = me ORDER BY old.last_seen DESC, old.id OFFSET 1000);
END $$;

-- The switch of one data class for one computer, with at most a hundred classes for each.
CREATE FUNCTION corvane_hub.set_enabled(for_computer uuid, computer_name text, class text, is_enabled boolean) RETURNS void
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $$
DECLARE
  me bigint := corvane_hub.my_account();
BEGIN
  PERFORM corvane_hub.note_computer(for_computer, computer_name);
  INSERT INTO corvane_hub.settings VALUES(me, for_computer, class, is_enabled)
    ON CONFLICT (account, computer, data_class) DO UPDATE SET enabled = excluded.enabled;
  IF (SELECT count(*) FROM corvane_hub.settings s WHERE s.account = me AND s.computer = for_computer) > 100 THEN
    RAISE EXCEPTION 'this computer has settings for too many data classes' USING ERRCODE = 'program_limit_exceeded';
  END IF;
END $$;

-- For the administrator, who must be a superuser (or a role that bypasses row-level security and may create roles). All
-- run with the caller's rights.

CREATE FUNCTION corvane_hub.add_account(account_name name, account_password text) RETURNS uuid
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp SET password_encryption = 'scram-sha-256' AS $$
DECLARE
  account_uid uuid;
BEGIN
  EXECUTE format('CREATE ROLE %I LOGIN CONNECTION LIMIT 5 PASSWORD %L IN ROLE corvane_account', account_name,
                 account_password);
  -- Needs a superuser to be changed, unlike the limits in time.
  EXECUTE format('ALTER ROLE %I SET temp_file_limit = %L', account_name, '64MB');
  INSERT INTO corvane_hub.accounts(role) VALUES(account_name) RETURNING uid INTO account_uid;
  RETURN account_uid;
END $$;

CREATE FUNCTION corvane_hub.change_password(account_name name, account_password text) RETURNS void
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp SET password_encryption = 'scram-sha-256' AS $$
BEGIN
  PERFORM FROM corvane_hub.accounts WHERE role = account_name;
  IF NOT FOUND THEN RAISE EXCEPTION 'there is no account %', account_name; END IF;
  EXECUTE format('ALTER ROLE %I PASSWORD %L', account_name, account_password);
END $$;

CREATE FUNCTION corvane_hub.remove_account(account_name name) RETURNS void
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
DECLARE
  gone bigint;
BEGIN
  DELETE FROM corvane_hub.accounts WHERE role = account_name RETURNING id INTO gone;
  IF gone IS NULL THEN RAISE EXCEPTION 'there is no account %', account_name; END IF;
  DELETE FROM corvane_hub.records WHERE account = gone;
  DELETE FROM corvane_hub.pushes WHERE account = gone;
  EXECUTE format('DROP ROLE %I', account_name);
END $$;

-- The bytes as text if PostgreSQL can hold them as such, otherwise the bytes with escapes.
CREATE FUNCTION corvane_hub.readable(bytes bytea) RETURNS text
LANGUAGE plpgsql IMMUTABLE STRICT SET search_path = pg_catalog, pg_temp AS $$
BEGIN
  RETURN convert_from(bytes, 'UTF8');
EXCEPTION WHEN OTHERS THEN
  RETURN encode(bytes, 'escape');
END $$;

CREATE FUNCTION corvane_hub.readable_records(account_name name)
RETURNS TABLE(id uuid, folder boolean, parent uuid, "position" integer, name text, url text, tab_group boolean,
              special boolean, deleted boolean, revision bigint, changed timestamptz)
LANGUAGE sql STABLE SET search_path = pg_catalog, pg_temp AS $$
  SELECT r.id, r.folder, r.parent, r.position, corvane_hub.readable(r.name), corvane_hub.readable(r.url), r.tab_group,
         r.special, r.deleted, r.revision, r.changed
  FROM corvane_hub.records r
  WHERE r.account = (SELECT a.id FROM corvane_hub.accounts a WHERE a.role = account_name)
$$;

REVOKE ALL ON ALL FUNCTIONS IN SCHEMA corvane_hub FROM PUBLIC;
GRANT USAGE ON SCHEMA corvane_hub TO corvane_account;
GRANT SELECT ON corvane_hub.version, corvane_hub.accounts, corvane_hub.records, corvane_hub.pushes, corvane_hub.computers,
                corvane_hub.settings TO corvane_account;
GRANT EXECUTE ON FUNCTION
  corvane_hub.my_account(),
  corvane_hub.begin_push(uuid, bigint, uuid, uuid, uuid),
  corvane_hub.put_records(uuid[], boolean[], uuid[], integer[], bytea[], bytea[], boolean[], boolean[], boolean[]),
  corvane_hub.note_computer(uuid, text),
  corvane_hub.set_enabled(uuid, text, text, boolean)
TO corvane_account;
RESET ROLE;
