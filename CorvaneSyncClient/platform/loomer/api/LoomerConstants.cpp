#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane {

const String LoomerDataClass_Bookmarks = "com.keldra.Bookmarks";
const String LoomerEntity_Bookmarks_Folder = "com.keldra.bookmarks.Folder";
const String LoomerEntity_Bookmarks_Bookmark = "com.keldra.bookmarks.Bookmark";
const String LoomerRecordEntityNameKey = interned("com.keldra.loomer.RecordEntityName");
const String LoomerAttribute_Bookmarks_Folder_Name = interned("folder name");
const String LoomerAttribute_Bookmarks_Folder_Position = interned("folder position");
const String LoomerRelationship_Bookmarks_Folder_Parent = interned("parent");
const String LoomerRelationship_Bookmarks_Folder_Children = interned("children");
const String LoomerAttribute_Bookmarks_Bookmark_Name = interned("name");
const String LoomerAttribute_Bookmarks_Bookmark_Url = interned("url");
const String LoomerAttribute_Bookmarks_Bookmark_Position = interned("position");
const String LoomerRelationship_Bookmarks_Bookmark_Parent = LoomerRelationship_Bookmarks_Folder_Parent;

}  // namespace corvane
