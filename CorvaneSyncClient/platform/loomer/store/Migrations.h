#pragma once

#include <span>

#include "CorvaneSyncClient/platform/loomer/store/Database.h"
#include "CorvaneSyncClient/platform/system/Messages.h"

namespace corvane::loomer {

/// Marks a file as the engine's store ("Loom").
inline constexpr std::int64_t kStoreApplicationId = 0x4c6f6f6d;

/// What reading the number of steps taken is for, as `Database` wants it.
inline constexpr const char* kReadVersion = MessageText<1>("cannot read its version: %1").english();

/// The steps from nothing to the present form of the store; the store's `user_version` is the number of steps
/// taken. A step that has been released is never changed: a new form is a new step.
std::span<const char* const> storeMigrations();

/// Raises LoomerStoreException, naming what is wrong, when the file is no SQLite database, is another
/// program's, or is of a version newer than `steps` reach. Writes nothing.
void refuseUnusableStore(Database& database, std::span<const char* const> steps);

/// Takes the steps that the store has not taken, in the transaction that is open.
void migrate(Database& database, std::span<const char* const> steps);

}  // namespace corvane::loomer
