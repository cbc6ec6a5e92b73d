#pragma once

namespace corvane {

// Properties over real files and the tool's own session code. Each draws its history from RapidCheck and
// fails by an exception that says what does not hold.

/// Random edits, sessions, browser writes during sessions and killed sessions end, after two rounds in a
/// random order, in one tree in every file; nothing vanishes that nobody deleted, nothing appears twice,
/// keys that only the browser knows stay, and sessions with nothing new write nothing.
void filesConverge();

/// Sessions over what a client agreed to leave files and store as sessions do that merge everything.
void agreementsChangeNothing();

/// Undoing a session on an otherwise quiet system brings every file's tree back exactly.
void undoRestoresEveryFile();

/// A record that a client refuses or ignores stays in the truth and with the others, whatever else happens.
void refusedRecordsStay();

}  // namespace corvane
