-- Closes ways in which accounts could learn of one another or get in the administrator's way. Changes nothing that the
-- computers' programs use.

-- The planner's statistics cover all accounts together, in spite of row-level security, and EXPLAIN shows how many rows it
-- expects to have a given title. So there are only statistics on the account's number; the service's statements need no
-- others.
DO $$
DECLARE
  each record;
BEGIN
  FOR each IN
    SELECT c.oid::regclass AS relation, a.attname AS name
    FROM pg_class c JOIN pg_attribute a ON a.attrelid = c.oid AND a.attnum > 0 AND NOT a.attisdropped
    WHERE c.relnamespace = 'corvane_hub'::regnamespace AND c.relkind IN ('r', 'p') AND NOT c.relispartition
      AND a.attname <> CASE c.relname WHEN 'accounts' THEN 'id' ELSE 'account' END
  LOOP
    EXECUTE format('ALTER TABLE %s ALTER COLUMN %I SET STATISTICS 0', each.relation, each.name);
  END LOOP;
END $$;
DELETE FROM pg_statistic s USING pg_attribute a
  WHERE a.attrelid = s.starelid AND a.attnum = s.staattnum AND a.attstattarget = 0
    AND s.starelid IN (SELECT oid FROM pg_class WHERE relnamespace = 'corvane_hub'::regnamespace);

SET LOCAL ROLE corvane_hub_owner;

-- For the administrator. Each call needs a transaction of its own, since new logins only see what is committed.

-- Closes the account's login.
CREATE FUNCTION corvane_hub.close_account(account_name name) RETURNS void
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
BEGIN
  PERFORM FROM corvane_hub.accounts WHERE role = account_name;
  IF NOT FOUND THEN RAISE EXCEPTION 'there is no account %', account_name; END IF;
  EXECUTE format('ALTER ROLE %I NOLOGIN', account_name);
END $$;

-- Ends the account's sessions with their open transactions, and waits until they are gone.
CREATE FUNCTION corvane_hub.end_sessions(account_name name) RETURNS void
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
BEGIN
  FOR tries IN 1..200 LOOP
    PERFORM pg_terminate_backend(pid) FROM pg_stat_activity WHERE usename = account_name;
    IF NOT FOUND THEN RETURN; END IF;
    PERFORM pg_sleep(0.05);
    PERFORM pg_stat_clear_snapshot();
  END LOOP;
  RAISE EXCEPTION 'sessions of % do not end', account_name;
END $$;

-- As before, but first revokes what other accounts may have granted the account on future objects.
CREATE OR REPLACE FUNCTION corvane_hub.remove_account(account_name name) RETURNS void
LANGUAGE plpgsql SET search_path = pg_catalog, pg_temp AS $$
DECLARE
  gone bigint;
BEGIN
  DELETE FROM corvane_hub.accounts WHERE role = account_name RETURNING id INTO gone;
  IF gone IS NULL THEN RAISE EXCEPTION 'there is no account %', account_name; END IF;
  DELETE FROM corvane_hub.records WHERE account = gone;
  DELETE FROM corvane_hub.pushes WHERE account = gone;
  EXECUTE format('DROP OWNED BY %I', account_name);
  EXECUTE format('DROP ROLE %I', account_name);
END $$;

REVOKE ALL ON FUNCTION corvane_hub.close_account(name), corvane_hub.end_sessions(name) FROM PUBLIC;
RESET ROLE;
