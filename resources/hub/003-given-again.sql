-- What a restored service was given again becomes part of the account's history. Older programs neither tell nor ask.

SET LOCAL ROLE corvane_hub_owner;

-- States that the service had lost, and out of which the account has grown again.
CREATE TABLE corvane_hub.given_again(
  account bigint NOT NULL REFERENCES corvane_hub.accounts(id) ON DELETE CASCADE,
  mark uuid NOT NULL,              -- the id of the push that was lost
  lost_revision bigint NOT NULL,   -- and its revision, in the past that was lost
  revision bigint NOT NULL,        -- of the push that gave it again
  PRIMARY KEY (account, mark)
);
ALTER TABLE corvane_hub.given_again ALTER COLUMN mark SET STATISTICS 0, ALTER COLUMN lost_revision SET STATISTICS 0,
                                    ALTER COLUMN revision SET STATISTICS 0;
ALTER TABLE corvane_hub.given_again ENABLE ROW LEVEL SECURITY, FORCE ROW LEVEL SECURITY;
CREATE POLICY own ON corvane_hub.given_again USING (account = (SELECT corvane_hub.my_account()));

-- Enters, for the push that this transaction began, the states that it gives again, as far as they are no part of the
-- account's history yet. An account keeps the newest thousand. The arrays have the same length.
CREATE FUNCTION corvane_hub.give_again(marks uuid[], lost_revisions bigint[]) RETURNS void
LANGUAGE plpgsql SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $$
DECLARE
  me bigint;
  now_at bigint;
BEGIN
  SELECT a.id, a.revision INTO me, now_at FROM corvane_hub.accounts a
    WHERE a.role = session_user AND a.pushed_in = pg_current_xact_id();
  IF me IS NULL THEN
    RAISE EXCEPTION 'this transaction has not begun a push' USING ERRCODE = 'object_not_in_prerequisite_state';
  END IF;
  INSERT INTO corvane_hub.given_again
    SELECT me, g.mark, g.revision, now_at FROM unnest(marks, lost_revisions) AS g(mark, revision)
    WHERE NOT EXISTS (SELECT FROM corvane_hub.pushes p WHERE p.account = me AND p.mark = g.mark)
    ON CONFLICT DO NOTHING;
  DELETE FROM corvane_hub.given_again g WHERE g.account = me AND g.mark IN (
    SELECT old.mark FROM corvane_hub.given_again old WHERE old.account = me
    ORDER BY old.revision DESC, old.lost_revision DESC, old.mark OFFSET 1000);
END $$;

REVOKE ALL ON FUNCTION corvane_hub.give_again(uuid[], bigint[]) FROM PUBLIC;
GRANT SELECT ON corvane_hub.given_again TO corvane_account;
GRANT EXECUTE ON FUNCTION corvane_hub.give_again(uuid[], bigint[]) TO corvane_account;
RESET ROLE;
