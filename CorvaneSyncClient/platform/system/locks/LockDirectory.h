#pragma once

#include <optional>
#include <string>
#include <system_error>

#include "CorvaneSyncClient/platform/system/FileSystem.h"

namespace corvane {

// A lock that is the existence of a directory can be removed by whoever finds it dead, and two may find that
// at once: the slower one must not remove the lock that the faster one has made since. So whoever removes a
// lock directory says which one it judged, by its identity, and
//   - has a hold on it (`FileSystem::hold`) from the judgement on, which all others here do too;
//   - moves it aside first, which takes it away in one step, and looks at what it has moved: programs that
//   know of no
//     holds, and file systems that have none, leave that moment. What is another's is put back.
// Killed in between, it leaves a name that the next one clears.

/// Takes the lock directory `judged`, or anything where that is absent, from `path`, for the caller to
/// delete. `aside` is where it stands now; empty when the one judged stood there no more. An error means that
/// it stands where it stood. Goes through the current platform's file system.
std::error_code takeLockDirectory(const std::string& path, const std::optional<FileIdentity>& judged,
                                  std::string& aside);

}  // namespace corvane
