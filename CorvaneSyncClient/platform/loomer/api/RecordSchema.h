#pragma once

#include <array>
#include <string>
#include <vector>

#include "CorvaneSyncClient/platform/foundation/PlatformException.h"
#include "CorvaneSyncClient/platform/foundation/values/Value.h"
#include "CorvaneSyncClient/platform/loomer/records/Records.h"

namespace corvane::loomer {

/// How one entity's records are written: which key holds what.
struct EntitySchema {
  String name;
  Entity entity = Entity::bookmark;
  String nameKey;
  String urlKey;       ///< absent for folders
  String tabGroupKey;  ///< absent for bookmarks
  String positionKey;
  std::vector<String> positionAliases;  ///< further keys under which the position is delivered
  String parentKey;  ///< an array of one local id; left out by records directly in the root
  std::optional<std::int32_t> specialPosition;  ///< the position by which the special folders are known
};

/// The form of the bookmarks data class's records, as the file "Corvane.syncschema" declares it.
struct RecordSchema {
  std::array<EntitySchema, 2> entities;  ///< folder, bookmark

  const EntitySchema& of(Entity entity) const { return entities[static_cast<std::size_t>(entity)]; }
  /// Null for an entity that the schema does not have.
  const EntitySchema* named(const String& name) const;
};

/// A schema that cannot be used; the reason names the path and the cause.
class SchemaProblem : public PlatformException {
 public:
  explicit SchemaProblem(Message reason) : PlatformException("LoomerSchemaException", std::move(reason)) {}
};

/// Where the schema of bookmarks is installed.
Url bookmarksSchemaUrl();

/// Reads the first of the files that `urls` name. A path under /System/Library is looked for at the root
/// first, then in the installation around the browser's bundle. Raises SchemaProblem.
RecordSchema readRecordSchema(const std::vector<Url>& urls);

/// The record as a client pushed it. Values of a wrong type count as absent; the URL may also be a string. A
/// parent that is the root's own id is the root. Texts become what every file and the online service can hold
/// (`repairedUtf8`): what is unpaired in one file stays in that file.
ClientRecord clientRecord(const EntitySchema& schema, const String& localId, const Dictionary& record);

/// The whole record for a client; `parentLocalId` is absent for the root. Its texts are repaired as those of
/// `clientRecord`, since an older store may hold others.
Dictionary recordDictionary(const EntitySchema& schema, const Content& content, std::int32_t position,
                            const String& parentLocalId);

}  // namespace corvane::loomer
