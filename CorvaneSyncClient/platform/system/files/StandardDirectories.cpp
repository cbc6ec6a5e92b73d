#include "CorvaneSyncClient/platform/system/files/StandardDirectories.h"

#include <array>

#include "CorvaneSyncClient/platform/system/Platform.h"
#include "CorvaneSyncClient/platform/system/files/PrivateFiles.h"

namespace corvane {

void makeStandardDirectoriesAbove(const std::string& path) {
  constexpr std::array kInHome = {"Library", "Library/Preferences", "Library/Application Support"};
  Platform& platform = Platform::current();
  const std::string home = platform.process.homeDirectory();
  for (const char* const name : kInHome) {
    const std::string directory = joinedPath(home, name);
    if (!path.starts_with(directory + '/')) continue;
    const std::error_code error = platform.files.makeDirectory(directory, kPrivateDirectoryMode);
    if (error && error != std::errc::file_exists)
      systemLog("Can't make directory %@: %@", directory, error.message());
  }
}

}  // namespace corvane
