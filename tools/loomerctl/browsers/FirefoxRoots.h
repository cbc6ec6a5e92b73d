#pragma once

#include <string_view>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "tools/loomerctl/browsers/BrowserBookmarks.h"

namespace corvane::loomerctl {

/// One of the folders in which Firefox keeps all others, and what becomes of it.
struct FirefoxRoot {
  std::string_view guid;  ///< in the database, and in backups
  std::string_view name;  ///< in backups, also in those of early versions
  const char* title;      ///< null for the folder of the tags
};

/// The folder of these roots.
inline constexpr FirefoxRoot kFirefoxTop = {"root________", "placesRoot", nullptr};
inline constexpr FirefoxRoot kFirefoxToolbar = {"toolbar_____", "toolbarFolder", LoomerTitleBookmarksBar};
/// Holds a folder for each tag, which lists the tagged addresses.
inline constexpr FirefoxRoot kFirefoxTags = {"tags________", "tagsFolder", nullptr};
inline constexpr FirefoxRoot kFirefoxUnfiled = {"unfiled_____", "unfiledBookmarksFolder", kOtherBookmarks};

inline constexpr FirefoxRoot kFirefoxRoots[] = {
    kFirefoxToolbar,
    {"menu________", "bookmarksMenuFolder", LoomerTitleBookmarksMenu},
    kFirefoxUnfiled,
    {"mobile______", "mobileFolder", kMobileBookmarks},
    kFirefoxTags};

/// What is noted with a bookmark's description; early versions have these.
inline constexpr std::string_view kFirefoxDescription = "bookmarkProperties/description";

}  // namespace corvane::loomerctl
