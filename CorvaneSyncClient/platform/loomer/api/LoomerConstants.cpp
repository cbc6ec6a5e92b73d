#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane {

const String LoomerDataClass_Bookmarks = "com.keldra.Bookmarks";
const String LoomerEntity_Bookmarks_Folder = "com.keldra.bookmarks.Folder";
const String LoomerEntity_Bookmarks_Bookmark = "com.keldra.bookmarks.Bookmark";
const String LoomerRecordEntityNameKey = "com.keldra.loomer.RecordEntityName";
const String LoomerAttribute_Bookmarks_Folder_Name = "folder name";
const String LoomerAttribute_Bookmarks_Folder_Position = "folder position";
const String LoomerRelationship_Bookmarks_Folder_Parent = "parent";
const String LoomerRelationship_Bookmarks_Folder_Children = "children";
const String LoomerAttribute_Bookmarks_Bookmark_Name = "name";
const String LoomerAttribute_Bookmarks_Bookmark_Url = "url";
const String LoomerAttribute_Bookmarks_Bookmark_Position = "position";
const String LoomerRelationship_Bookmarks_Bookmark_Parent = LoomerRelationship_Bookmarks_Folder_Parent;

}  // namespace corvane
