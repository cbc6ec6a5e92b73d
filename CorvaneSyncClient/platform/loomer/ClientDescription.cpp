#include "CorvaneSyncClient/platform/loomer/ClientDescription.h"

#include "CorvaneSyncClient/platform/foundation/PropertyList.h"
#include "CorvaneSyncClient/platform/loomer/LoomerConstants.h"
#include "CorvaneSyncClient/platform/system/Platform.h"

namespace corvane::loomer {

namespace {

bool isBookmarksEntity(const String& name) {
  return name == LoomerEntity_Bookmarks_Folder || name == LoomerEntity_Bookmarks_Bookmark;
}

/// What is wrong with the description; empty when nothing is.
std::string problemOf(const Dictionary& description) {
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
