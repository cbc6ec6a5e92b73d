#pragma once

namespace corvane {

// What must hold after any history of two browsers, a file, and what happens to them. Each raises
// std::logic_error, with the reason, where it does not.

/// When edits stop and all have synced twice, the browsers and the file hold one tree, more sessions change
/// nothing, and what nobody deleted is there once, whatever was killed.
void browsersConverge();
/// The same where profiles are put back to earlier states as well, and browsers give all their nodes new ids.
void restoredBrowsersConverge();

}  // namespace corvane
