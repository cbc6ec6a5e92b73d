#pragma once

#include <cstdint>

#include "CorvaneSyncClient/platform/foundation/text/String.h"

namespace corvane {

// The bookmarks schema's names as they stand in sync records. The two parent relationships share one string,
// so that a record whose missing parent was filled in is a child of the right folder, whichever entity it is;
// all others differ.
extern const String LoomerDataClass_Bookmarks;
extern const String LoomerEntity_Bookmarks_Folder;
extern const String LoomerEntity_Bookmarks_Bookmark;
extern const String LoomerRecordEntityNameKey;
extern const String LoomerAttribute_Bookmarks_Folder_Name;
extern const String LoomerAttribute_Bookmarks_Folder_Position;
extern const String LoomerRelationship_Bookmarks_Folder_Parent;
extern const String LoomerRelationship_Bookmarks_Folder_Children;
extern const String LoomerAttribute_Bookmarks_Bookmark_Name;
extern const String LoomerAttribute_Bookmarks_Bookmark_Url;
extern const String LoomerAttribute_Bookmarks_Bookmark_Position;
extern const String LoomerRelationship_Bookmarks_Bookmark_Parent;

// Values that mean something of their own in sync records.

/// Stands for the root where a record names its parent; no record bears it.
inline constexpr const char* LoomerRootIdentifier = "Root";
/// The position of the two special folders, wherever they stand in the root's list.
inline constexpr std::int32_t LoomerPositionSpecial = -2;
/// The position of what is to be placed by its title.
inline constexpr std::int32_t LoomerPositionByTitle = -1000;
/// The titles that make a folder directly in the root special: what a browser shows in its toolbar and its
/// menu.
inline constexpr const char* LoomerTitleBookmarksBar = "BookmarksBar";
inline constexpr const char* LoomerTitleBookmarksMenu = "BookmarksMenu";

/// How much a session exchanges.
enum LoomerSyncMode : int {
  LoomerSyncModeFast = 1,     ///< only changes
  LoomerSyncModeSlow = 2,     ///< the client hands over all its records
  LoomerSyncModeRefresh = 3,  ///< the engine's data stands where the two differ
};

/// What a change does. A client may meet other numbers and must answer them with an error.
enum LoomerChangeType : int {
  LoomerChangeTypeAdd = 1,
  LoomerChangeTypeModify = 2,
  LoomerChangeTypeDelete = 3,
};

/// A client's answer to one change.
enum LoomerChangeResult : int {
  LoomerChangeRefused = 0,
  LoomerChangeAccepted = 1,
  LoomerChangeIgnored = 2,
  LoomerChangeError = 3,
};

}  // namespace corvane
