-- Settings of the server and the database that the service needs besides its schema. Applied at every set-up, so that they
-- also hold after a backup was restored into a new server.

DO $$
BEGIN
  IF NOT EXISTS (SELECT FROM pg_roles WHERE rolname = 'corvane_hub_owner') THEN CREATE ROLE corvane_hub_owner NOLOGIN; END IF;
  IF NOT EXISTS (SELECT FROM pg_roles WHERE rolname = 'corvane_account') THEN CREATE ROLE corvane_account NOLOGIN; END IF;

  -- An account can connect and can store nothing but its records: no temporary tables, no schema "public", no large
  -- objects.
  EXECUTE format('REVOKE ALL ON DATABASE %I FROM PUBLIC', current_database());
  EXECUTE format('GRANT CONNECT ON DATABASE %I TO corvane_account', current_database());
  IF to_regnamespace('public') IS NOT NULL THEN REVOKE ALL ON SCHEMA public FROM PUBLIC; END IF;
END $$;

-- It may not make large objects; take advisory locks, which would block others and fill the server's lock table; write to
-- the write-ahead log; or use transaction numbers, which are one series for the whole server: asking for one consumes it,
-- and shows how much the others do.
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

-- It may not run programs of its own.
REVOKE USAGE ON LANGUAGE plpgsql FROM PUBLIC;
GRANT USAGE ON LANGUAGE plpgsql TO corvane_hub_owner;
