#pragma once

namespace corvane::loomer::test {

// The properties of the engine over clients in memory. Each draws a random history of several clients from
// RapidCheck and fails by an exception, or an assertion of RapidCheck's, that says what does not hold.

/// When edits stop, two rounds bring every client to one tree, and nothing changes afterwards.
void clientsConverge();

/// What one client changed, and nobody else touched, arrives at every other client as it was, order included.
void changesArrive();

/// Nothing vanishes that no client deleted, nothing appears twice that was there once; equal first trees with
/// different uids and sessions killed halfway included.
void nothingVanishes();

/// Where client, base and truth say the same but for values that the client or others gave to some records
/// where they stand, the merge of the folders with these, and of those above, does what the merge of
/// everything does.
void changedValuesMergeInTheirFolders();

/// Killing a session after the file was saved, then syncing on, ends as if it had not been killed.
void killedSessionsLeaveNoTrace();

}  // namespace corvane::loomer::test
