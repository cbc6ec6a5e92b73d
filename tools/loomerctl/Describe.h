#pragma once

#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/loomer/store/RecordTable.h"
#include "CorvaneSyncClient/platform/loomer/store/SessionLog.h"
#include "tools/loomerctl/JsonWriter.h"

namespace corvane::loomerctl {

/// "folder" or "bookmark", for programs and for people.
const char* entityName(loomer::Entity entity);
std::string entityText(loomer::Entity entity);
/// "fast", …, "undo", "import" for the number of a SessionKind; "unknown" for others. For programs and for
/// people.
const char* kindName(int kind);
std::string kindText(int kind);

/// What a conflict was about, for people; printable. `attribute` is a Loss's.
std::string attributeText(const std::string& attribute);

/// `#12 "News"`, with the title that the folder has now; "the root" for the root.
std::string folderText(loomer::RecordTable& records, loomer::RecordId folder);
/// `in #12 "News"`; "in the root".
std::string insideText(loomer::RecordTable& records, loomer::RecordId folder);
/// The titles of the folders from the root to this one. A damaged store may hold a cycle: the path ends
/// before a folder would come up a second time.
std::vector<std::string> folderPath(loomer::RecordTable& records, loomer::RecordId folder);

/// One attribute that a change touched; a side is "(none)" where the record had none there.
struct AttributeChange {
  std::string attribute;  ///< "title", "address", "folder", "place", "group of tabs", "special"
  std::string before;
  std::string after;
};

/// What differs between the sides of a change that has both.
std::vector<AttributeChange> attributeChanges(loomer::RecordTable& records, const loomer::LoggedState& before,
                                              const loomer::LoggedState& after);

/// The members "title" and "url" (bookmarks) or "tabGroup" and "special" (folders) of an open object.
void writeContent(JsonWriter& json, loomer::Entity entity, const loomer::Content& content);
/// One side of a logged change: null where the record was not there.
void writeState(JsonWriter& json, const char* key, loomer::Entity entity,
                const std::optional<loomer::LoggedState>& state);

}  // namespace corvane::loomerctl
