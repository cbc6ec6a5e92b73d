#pragma once

#include <string>

namespace corvane {

/// The standard directories of a user are "Library" in the home directory, and in it "Preferences" and
/// "Application Support". They are the system's to make, and on Linux nobody else makes them: those that
/// `path` lies in, by its text, and that are missing are made for the user alone. Call this before
/// writing there. A line in the system log for one that cannot be made; the caller's own operation
/// then fails.
void makeStandardDirectoriesAbove(const std::string& path);

}  // namespace corvane
