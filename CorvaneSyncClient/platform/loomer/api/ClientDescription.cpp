#include "CorvaneSyncClient/platform/loomer/api/ClientDescription.h"

#include "CorvaneSyncClient/platform/foundation/plist/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/api/LoomerConstants.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

namespace {

bool isBookmarksEntity(const String& name) {
  return name == LoomerEntity_Bookmarks_Folder || name == LoomerEntity_Bookmarks_Bookmark;
}

// What is wrong with the data class and its entities; empty when nothing is, here and below.
Message problemOfRecords(const Dictionary& description) {
  const String dataClass = description.string("DataClass");
  if (!dataClass) return Message("it names no data class under \"DataClass\"");
  if (!(dataClass == LoomerDataClass_Bookmarks)) {
    return Message("its data class is \"%1\", and only \"%2\" is synced here", dataClass.view(),
                   LoomerDataClass_Bookmarks.view());
  }
  const Array* entities = description.array("Entities");
  if (!entities || entities->empty()) return Message("it names no entities under \"Entities\"");
  for (const Value& entity : *entities) {
    if (!isBookmarksEntity(entity.string()))
      return Message("the schema has no entity \"%1\"", corvane::description(entity));
  }
  return {};
}

Message problemOf(const Dictionary& description) {
  if (Message problem = problemOfRecords(description); !problem.empty()) return problem;
  for (const char* key : {"DisplayName", "ToolPath"}) {
    if (description.string(key).empty()) return Message("it has no text under \"%1\"", key);
  }
  if (description.find("ImagePath") && description.string("ImagePath").empty()) {
    return Message("what it has under \"ImagePath\" is no path");
  }
  return {};
}

}  // namespace

std::optional<Dictionary> readClientDescription(const std::string& path, Message& problem) {
  std::string bytes;
  if (const std::error_code error = Platform::current().files.read(path, bytes)) {
    problem = error.message();
    return std::nullopt;
  }
  try {
    const Value value = readPropertyList(bytes);
    const Dictionary* description = value.as<Dictionary>();
    problem =
        description ? problemOf(*description) : Message("it is no dictionary but a %1", value.typeName());
    if (problem.empty()) return *description;
  } catch (const PropertyListException& exception) {
    problem = exception.message();
  }
  return std::nullopt;
}

}  // namespace corvane::loomer
