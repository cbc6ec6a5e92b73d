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
REVOKE EXECUTE ON FUNCTION pg_catalog.lo_creat(integer), pg_catalog.lo_create(oid), pg_catalog.lo_from_bytea(oid, bytea)
  FROM PUBLIC;
