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
std::string problemOfRecords(const Dictionary& description) {
  const String dataClass = description.string("DataClass");
  if (!dataClass) return "it names no data class under \"DataClass\"";
  if (!(dataClass == LoomerDataClass_Bookmarks)) {
    return format("its data class is \"%@\", and only \"%@\" is synced here", dataClass,
                  LoomerDataClass_Bookmarks);
  }
  const Array* entities = description.array("Entities");
  if (!entities || entities->empty()) return "it names no entities under \"Entities\"";
  for (const Value& entity : *entities) {
    if (!isBookmarksEntity(entity.string())) return format("the schema has no entity \"%@\"", entity);
  }
  return {};
}

std::string problemOf(const Dictionary& description) {
  if (std::string problem = problemOfRecords(description); !problem.empty()) return problem;
  for (const char* key : {"DisplayName", "ToolPath"}) {
    if (description.string(key).empty()) return format("it has no text under \"%@\"", key);
  }
  if (description.find("ImagePath") && description.string("ImagePath").empty()) {
    return "what it has under \"ImagePath\" is no path";
  }
  return {};
}

}  // namespace

std::optional<Dictionary> readClientDescription(const std::string& path, std::string& problem) {
  std::string bytes;
  if (const std::error_code error = Platform::current().files.read(path, bytes)) {
    problem = error.message();
    return std::nullopt;
  }
  try {
    const Value value = readPropertyList(bytes);
    const Dictionary* description = value.as<Dictionary>();
    problem =
        description ? problemOf(*description) : std::string("it is no dictionary but a ") + value.typeName();
    if (problem.empty()) return *description;
  } catch (const PropertyListException& exception) {
    problem = exception.reason();
  }
  return std::nullopt;
}

}  // namespace corvane::loomer
