-- What the hub needs of the server and the database around its schema. Applied at every set-up, so that it also stands
-- after a backup was restored into a new server.

DO $$
BEGIN
  IF NOT EXISTS (SELECT FROM pg_roles WHERE rolname = 'corvane_hub_owner') THEN CREATE ROLE corvane_hub_owner NOLOGIN; END IF;
  IF NOT EXISTS (SELECT FROM pg_roles WHERE rolname = 'corvane_account') THEN CREATE ROLE corvane_account NOLOGIN; END IF;

  -- An account connects and finds nothing in which to store anything but its records: no temporary tables, no schema
  -- "public", no large objects.
  EXECUTE format('REVOKE ALL ON DATABASE %I FROM PUBLIC', current_database());
  EXECUTE format('GRANT CONNECT ON DATABASE %I TO corvane_account', current_database());
  IF to_regnamespace('public') IS NOT NULL THEN REVOKE ALL ON SCHEMA public FROM PUBLIC; END IF;
END $$;

-- Nor may it make large objects; take advisory locks, which would keep others waiting and fill the server's one table of
-- locks; write into the log of changes, which is kept for standby servers; or have to do with the transactions' numbers, of
-- which there is one series for the whole server: whoever asks for one uses it up, and sees how much the others do.
DO $$
DECLARE
  each regprocedure;
BEGIN
  FOR each IN
    SELECT p.oid FROM pg_proc p
    WHERE p.pronamespace = 'pg_catalog'::regnamespace
      AND (p.proname ~ '^pg_(try_)?advisory_' OR p.proname IN ('lo_creat', 'lo_create', 'lo_from_bytea')
           OR p.proname IN ('pg_logical_emit_message', 'pg_export_snapshot', 'pg_last_committed_xact')
           OR p.proname ~ '^(txid_|pg_xact_|pg_current_(xact|snapshot)|pg_(snapshot|visible)_)')
  LOOP
    EXECUTE format('REVOKE EXECUTE ON FUNCTION %s FROM PUBLIC', each);
  END LOOP;
END $$;
GRANT EXECUTE ON FUNCTION pg_current_xact_id() TO corvane_hub_owner;

-- Nor programs of its own.
REVOKE USAGE ON LANGUAGE plpgsql FROM PUBLIC;
GRANT USAGE ON LANGUAGE plpgsql TO corvane_hub_owner;
