#include "tests/kit/Entries.h"

#include <utility>

#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"

namespace corvane {

namespace {

Dictionary record(const String& entity, const String& nameKey, const char* name, const char* parent) {
  Dictionary made{{LoomerRecordEntityNameKey, entity}};
  if (name) made.set(nameKey, name);
  if (parent) made.set(LoomerRelationship_Bookmarks_Folder_Parent, Array{parent});
  return made;
}

}  // namespace

Dictionary rootEntry(std::vector<Value> children) {
  return Dictionary{{"WebBookmarkType", "WebBookmarkTypeList"}, {"Children", Array(std::move(children))}};
}

Dictionary folderEntry(const char* uid, const char* title, std::vector<Value> children) {
  return Dictionary{{"WebBookmarkType", "WebBookmarkTypeList"},
                    {"WebBookmarkUUID", uid},
                    {"Title", title},
                    {"Children", Array(std::move(children))}};
}

Dictionary bookmarkEntry(const char* uid, const char* title, const char* url) {
  return Dictionary{{"WebBookmarkType", "WebBookmarkTypeLeaf"},
                    {"WebBookmarkUUID", uid},
                    {"URLString", url},
                    {"URIDictionary", Dictionary{{"title", title}, {"", url}}}};
}

Dictionary folderRecord(const char* name, const char* parent) {
  return record(LoomerEntity_Bookmarks_Folder, LoomerAttribute_Bookmarks_Folder_Name, name, parent);
}

Dictionary bookmarkRecord(const char* name, const char* parent, const char* url) {
  Dictionary result =
      record(LoomerEntity_Bookmarks_Bookmark, LoomerAttribute_Bookmarks_Bookmark_Name, name, parent);
  if (url) result.set(LoomerAttribute_Bookmarks_Bookmark_Url, Url{url});
  return result;
}

Dictionary with(Dictionary original, const char* key, Value value) {
  original.set(key, std::move(value));
  return original;
}

Dictionary without(Dictionary original, const char* key) {
  original.remove(key);
  return original;
}

Dictionary hidden(const Dictionary& entry) { return with(entry, "ShouldOmitFromUI", true); }

Dictionary atPosition(Dictionary record, int position) {
  record.set(LoomerAttribute_Bookmarks_Folder_Position, position);
  record.set(LoomerAttribute_Bookmarks_Bookmark_Position, position);
  return record;
}

}  // namespace corvane
