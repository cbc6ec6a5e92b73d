#pragma once

#include <optional>
#include <string>

#include "CorvaneSyncClient/platform/loomer/store/Journal.h"

namespace corvane::loomer {

// Journals as older versions wrote them: a small SQLite database each.

/// Nothing when there is none, or none that can be read.
std::optional<Journal> readOldJournal(const std::string& path);
/// What cannot be removed stays.
void removeOldJournal(const std::string& path) noexcept;

}  // namespace corvane::loomer
